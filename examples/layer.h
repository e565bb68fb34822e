/* What the small hosts on the host layer have in common: their start, and their end when what they sent is out. */
#ifndef EXAMPLES_LAYER_H
#define EXAMPLES_LAYER_H

#include "host.h"

#include <bridge/host.h>

/* Makes the loop and starts the layer with it; fills size and master of `config`. What was asked for before the signal
 * that ends the loop still goes out. */
bool layer_start(struct bridge_host_config *config);

/* The host_at_end of a host on the layer; layer_start() sets it. */
void layer_stop(void);

#endif
