/** @file
 * Clear-channel assessment in a configuration. The rules for setters in zet_config.h apply here too: called
 * on the server's only thread, never from an interrupt; cannot fail, does not block.
 */
#ifndef ZET_CONFIG_CCA_H
#define ZET_CONFIG_CCA_H

#include <stdbool.h>

#include "zet_config.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets whether every frame contains a clear-channel measurement, for zet_processing_cca_check; false by
 * default.
 */
void zet_config_enable_cca_set(zet_config_t *config, bool enabled);

#ifdef __cplusplus
}
#endif

#endif
