/** @file
 * Fixtures: the backend among its stand-ins, before and after a successful initialisation.
 */
#ifndef BACKEND_FIXTURE_H
#define BACKEND_FIXTURE_H

#include <string>

#include <gtest/gtest.h>

#include "neighbours.h"
#include "zet_vantor_server_error_messages.h"
#include "zet_vantor_server_system_k330.h"

namespace backend_tests
{

/** A member of a document: the operation that adds it, and its key. */
struct json_member_t
{
    std::string operation;
    std::string key;
};

/**
 * The backend before its initialisation.
 *
 * The call log holds the calls of the last operation. After every test the backend is taken down, and every
 * block of memory must have been freed.
 */
class backend_test : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /** @name The exported operations */
    /** @{ */
    bool init(zet_log_level_t level = ZET_LOG_LEVEL_WARNING);
    void deinit();
    void destroy_session();
    bool parse(const std::string &document);
    bool send_metadata(uint32_t tick_period = 1000);
    bool prepare_only();
    bool read_frame();
    /** @} */

    /** Parses a document of one group, given as the list of its items. */
    bool parse_group(const std::string &items);

    /** Parses a document of one item on sensor 1 with the given "config" object. */
    bool parse_config(const std::string &config);

    /** Calls of the last operation but those on JSON. */
    static std::string calls();

    /** Calls of the last operation of one kind. */
    static std::string calls(call_kind_t kind);

    /** The JSON calls of the last operation from the first one with the given beginning. */
    static std::string json_from(const std::string &beginning);

    /** Lets the next adding of a member fail. */
    static void refuse_member(const json_member_t &member);

    /** The JSON calls of the last operation after the adding of a member. */
    static std::string json_after(const json_member_t &member);

    /** The document sent last. */
    static std::string sent_document();

    /** Ends the session and the backend, and checks that nothing is left but the given number of documents.
     */
    void finish(size_t unattached_documents = 0);

    const char *error = nullptr; /**< stored by the operations */
    float update_rate = 77.0F;   /**< stored by parse */
    vantor_server_interface_t interface {
    }; /**< lent to read_frame */

private:
    bool initialised = false;
};

/** The backend after its initialisation; blocks that it allocates for a session count from 1. */
class ready_backend_test : public backend_test
{
protected:
    void SetUp() override;
};

} // namespace backend_tests

#endif
