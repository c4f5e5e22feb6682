#include "controller.h"

void controller_init(struct controller *controller, int low_mark, int high_mark)
{
    controller->state = CONTROLLER_IDLE;
    controller->low_mark = low_mark;
    controller->high_mark = high_mark;
    controller->dry_ticks = 0;
}

bool controller_tick(struct controller *controller, const struct inputs *inputs)
{
    switch (controller->state) {
    case CONTROLLER_IDLE:
        if (inputs->level < controller->low_mark) {
            controller->state = CONTROLLER_PUMPING;
            controller->dry_ticks = 0;
        }
        break;
    case CONTROLLER_PUMPING:
        controller->dry_ticks = inputs->flow > 0 ? 0 : controller->dry_ticks + 1;
        if (controller->dry_ticks >= DRY_RUN_TICKS)
            controller->state = CONTROLLER_FAULT;
        else if (inputs->level > controller->high_mark)
            controller->state = CONTROLLER_IDLE;
        break;
    case CONTROLLER_FAULT:
        if (inputs->acknowledge)
            controller->state = CONTROLLER_IDLE;
        break;
    }
    return controller->state == CONTROLLER_PUMPING;
}
