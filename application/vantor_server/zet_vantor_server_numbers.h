/** @file
 * Checks the numbers of a configuration document before the backend reads them.
 */
#ifndef ZET_VANTOR_SERVER_NUMBERS_H
#define ZET_VANTOR_SERVER_NUMBERS_H

#include <cjson/cJSON.h>

/**
 * Checks that the backend can represent every number of the items: it would measure with the low bits of a
 * larger one. Whether the sensor allows the number is not checked.
 *
 * @param configuration  the configuration document, whose groups have been checked
 * @param message        receives what is wrong, zet_groups_message_size bytes; unchanged when nothing is
 * @return whether nothing is wrong
 */
bool zet_numbers_check(const cJSON *configuration, char *message);

#endif
