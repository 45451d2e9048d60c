/** @file
 * A stand-in for the sensor-system backend: behaves like it, fails on request, and records misuse.
 *
 * Its only item is sensor 1 with 100 samples per frame. It allocates through cJSON like the backend.
 */
#ifndef FAKE_BACKEND_H
#define FAKE_BACKEND_H

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

/** Samples in a frame of the stand-in. */
constexpr uint32_t fake_frame_samples = 100;

/** Controls the stand-in and records what it did. */
struct fake_backend_t
{
    bool init_result = true;
    bool parse_result = true;
    const char *parse_message = nullptr; /**< stored whatever the result */
    bool sensor_paced = false;           /**< a frame rate is configured */
    bool metadata_result = true;
    bool frame_result = true;
    const char *frame_message = nullptr; /**< stored when the result is false */
    uint32_t sensor_count = 5;
    std::set<uint32_t> connected = {1, 2};
    std::function<void()> during_parse = [] {};
    std::function<void()> during_frame = [] {};

    bool ready = false;                  /**< between init and deinit */
    void *session = nullptr;             /**< memory that a session owns */
    bool parsed = false;                 /**< a document was parsed and the session has not ended */
    bool prepared = false;               /**< the last document was accepted */
    std::vector<std::string> calls;      /**< names of the functions called, without the common prefix */
    std::vector<std::string> violations; /**< calls that broke the calling order */
    uint8_t nox_log_level = 0xFF;        /**< as passed to init */
};

extern fake_backend_t fake_backend;

/** Header of the stand-in's frames. */
extern const char *const fake_frame_header;

#endif
