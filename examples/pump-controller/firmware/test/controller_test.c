#include <assert.h>
#include <stdio.h>

#include "controller.h"

static bool tick(struct controller *controller, int level, int flow, bool acknowledge)
{
    const struct inputs inputs = {level, flow, acknowledge};
    return controller_tick(controller, &inputs);
}

static void test_keeps_the_level(void) /* PC-1, PC-2 */
{
    struct controller controller;
    controller_init(&controller, 200, 800);
    assert(!tick(&controller, 500, 0, false));
    assert(tick(&controller, 199, 0, false));
    assert(tick(&controller, 800, 40, false));
    assert(!tick(&controller, 801, 40, false));
}

static void test_stops_when_dry(void) /* PC-3, PC-4 */
{
    struct controller controller;
    controller_init(&controller, 200, 800);
    assert(tick(&controller, 100, 0, false));
    for (int i = 1; i < DRY_RUN_TICKS; ++i)
        assert(tick(&controller, 100, 0, false));
    assert(!tick(&controller, 100, 0, false));
    assert(!tick(&controller, 100, 0, false));
    assert(!tick(&controller, 100, 0, true));
    assert(tick(&controller, 100, 0, false));
}

int main(void)
{
    test_keeps_the_level();
    test_stops_when_dry();
    puts("controller: all tests passed");
    return 0;
}
