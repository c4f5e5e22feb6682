"""Simulates the tank with a consumer that draws water in bursts, and prints how often the pump starts in an hour."""

AREA = 0.25  # m²
INFLOW = 0.0008  # m³/s while the pump runs
BURST = 0.0012  # m³/s for one minute in every five


def starts_per_hour(low_mark, high_mark):
    level, pumping, starts = high_mark, False, 0
    for second in range(3600):
        if not pumping and level < low_mark:
            pumping, starts = True, starts + 1
        elif pumping and level > high_mark:
            pumping = False
        outflow = BURST if second % 300 < 60 else 0.0
        level += ((INFLOW if pumping else 0.0) - outflow) / AREA
    return starts


if __name__ == "__main__":
    for low_mark in (0.2, 0.4, 0.6, 0.7):
        print(f"low mark {low_mark:.1f} m: {starts_per_hour(low_mark, 0.8)} starts an hour")
