/** @file
 * A whole session that uses everything the backend has, run while one thing fails.
 */
#ifndef WHOLE_SESSION_H
#define WHOLE_SESSION_H

#include <string>
#include <vector>

#include "backend_fixture.h"

namespace backend_tests
{

/** What one operation of a session came to. */
struct step_t
{
    std::string name; /**< "init", "parse", "metadata" or "frame" */
    bool ok;
    const char *error;      /**< message stored, null when none */
    std::string error_log;  /**< lines logged at error level */
    size_t documents;       /**< documents sent */
    bool failure_came_here; /**< the failure that the test asked for came about in this step */
};

/** Runs whole sessions: one with a failure in it, then an undisturbed one. */
class whole_session : public backend_test
{
protected:
    void SetUp() override;

    /**
     * Initialises, and runs a session up to the operation after which there is nothing left to do: the last
     * of three frames, or a failed init or parse.
     */
    std::vector<step_t> run();

    /** Ends the session that run left, and deletes and counts the documents that the backend left loose. */
    size_t end_session();

    /** Runs an undisturbed session on the same or a new life of the backend and expects nothing to fail. */
    void expect_following_session_to_work(bool same_life);

    /** The step in which the failure came about, or null. */
    static const step_t *failed_step(const std::vector<step_t> &steps);

    /**
     * Whether the failure hit an item that is followed by another one of its group. Such an item leaves its
     * message, and the document is accepted all the same.
     */
    static bool hit_an_item_before_another();

    /** Whether the failure hit the calibration entry of a sensor before another one with an entry. */
    static bool hit_a_calibration_entry_before_another();

    /** Size of the work buffers in these sessions; nothing else is of that size. */
    static constexpr uint32_t work_buffer_size = 4096;

private:
    step_t finish_step(const std::string &name, bool ok, size_t documents_before);

    [[nodiscard]] static bool failure_reached();

    bool failure_seen = false;
};

} // namespace backend_tests

#endif
