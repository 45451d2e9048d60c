/** @file
 * The frame message written by hand for one board, as a lower limit of its instructions.
 */
#ifndef VANTOR_HAND_WRITTEN_MESSAGE_H
#define VANTOR_HAND_WRITTEN_MESSAGE_H

#include <cstdint>

#include "zet_vantor_server_base.h"

/** Shape of a session, and the frame of every item. */
struct message_shape_t
{
    uint32_t groups;
    uint32_t items_per_group;
    uint32_t tick;
    int16_t temperature;
    uint32_t samples_per_item;
    bool is_assessed; /**< with clear-channel assessment and its details */
};

/** The result of every assessment, as number and as text. */
constexpr float assessed_value = 0.12345679F;
constexpr char assessed_text[] = "0.12345679";

/** Writes the frame message of a session: header and one payload per item. */
void hand_written_message(write_data_function_t *write, const message_shape_t &shape, const void *samples);

#endif
