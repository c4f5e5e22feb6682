/* The level controller: a state machine that is advanced once a tick. */
#ifndef CONTROLLER_H
#define CONTROLLER_H

#include <stdbool.h>

enum { TICKS_PER_SECOND = 10, DRY_RUN_TICKS = 2 * TICKS_PER_SECOND };

enum controller_state { CONTROLLER_IDLE, CONTROLLER_PUMPING, CONTROLLER_FAULT };

struct controller {
    enum controller_state state;
    int low_mark;  /* mm */
    int high_mark; /* mm */
    int dry_ticks;
};

struct inputs {
    int level; /* mm */
    int flow;  /* ml/s */
    bool acknowledge;
};

void controller_init(struct controller *controller, int low_mark, int high_mark);

/* Returns whether the pump is to run until the next tick. */
bool controller_tick(struct controller *controller, const struct inputs *inputs);

#endif
