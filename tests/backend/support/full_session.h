/** @file
 * A complete session that uses all features of the backend, with one failure.
 */
#ifndef FULL_SESSION_H
#define FULL_SESSION_H

#include <string>
#include <vector>

#include "backend_fixture.h"

namespace backend_tests
{

/** The result of one operation of a session. */
struct step_t
{
    std::string name; /**< "init", "parse", "metadata" or "frame" */
    bool ok;
    const char *error;     /**< the stored message, or null */
    std::string error_log; /**< lines logged at error level */
    size_t documents;      /**< documents sent */
    bool failed_here;      /**< the requested failure happened in this step */
};

/** Runs complete sessions: one with a failure, then one without. */
class full_session : public backend_test
{
protected:
    void SetUp() override;

    /**
     * Initialises the backend and runs a session up to the last of three frames. Stops after a failed init or
     * parse.
     */
    std::vector<step_t> run();

    /** Ends the session started by run, deletes the documents that the backend leaked, and returns their
     * number. */
    size_t end_session();

    /** Expects a session without failures to work, with or without a new initialisation of the backend. */
    void expect_following_session_to_work(bool same_initialisation);

    /** The step in which the requested failure happened, or null. */
    static const step_t *failed_step(const std::vector<step_t> &steps);

    /**
     * Whether the failure hit an item that is not the last of its group. Such an item sets its message, but
     * the document is still accepted.
     */
    static bool hit_an_item_before_another();

    /** Whether the failure hit a calibration entry that is not the last. */
    static bool hit_a_calibration_entry_before_another();

    /** Size of the work buffers in these sessions. No other allocation has this size. */
    static constexpr uint32_t work_buffer_size = 4096;

private:
    step_t finish_step(const std::string &name, bool ok, size_t documents_before);

    [[nodiscard]] static bool failure_reached();

    bool failure_seen = false;
};

} // namespace backend_tests

#endif
