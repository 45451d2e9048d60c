/** @file
 * Clear-channel assessment in a configuration.
 */
#ifndef ZET_CONFIG_CCA_H
#define ZET_CONFIG_CCA_H

#include <stdbool.h>

#include "zet_config.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Sets whether every frame carries a clear-channel measurement; false by default. */
void zet_config_enable_cca_set(zet_config_t *config, bool enabled);

#ifdef __cplusplus
}
#endif

#endif
