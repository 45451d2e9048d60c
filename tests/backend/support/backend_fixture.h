/** @file
 * Fixtures: the backend with its stand-ins, before and after a successful initialisation.
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

/** A member of a document: the function that adds it, and its key. */
struct json_member_t
{
    std::string operation;
    std::string key;
};

/**
 * The backend before its initialisation.
 *
 * The call log contains the calls of the last operation. After every test the fixture deinitialises the
 * backend and checks that all memory is freed.
 */
class backend_test : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /** @name The operations of the backend */
    /** @{ */
    bool init(zet_log_level_t level = ZET_LOG_LEVEL_WARNING);
    void deinit();
    void destroy_session();
    bool parse(const std::string &document);
    bool send_metadata(uint32_t tick_period = 1000);
    bool prepare_only();
    bool read_frame();
    /** @} */

    /** Parses a document with one group, which contains @p items. */
    bool parse_group(const std::string &items);

    /** Parses a document with one item on sensor 1 with this "config" object. */
    bool parse_config(const std::string &config);

    /** Calls of the last operation, except JSON calls. */
    static std::string calls();

    /** Calls of the last operation of one kind. */
    static std::string calls(call_kind_t kind);

    /** The JSON calls of the last operation, from the first one that begins with this text. */
    static std::string json_from(const std::string &beginning);

    /** Makes the next call that adds this member fail. */
    static void refuse_member(const json_member_t &member);

    /** The JSON calls of the last operation after the one that adds this member. */
    static std::string json_after(const json_member_t &member);

    /** The last document sent. */
    static std::string sent_document();

    /** Ends the session, deinitialises the backend, and checks that it leaked only this number of documents.
     */
    void finish(size_t leaked_documents = 0);

    const char *error = nullptr; /**< stored by the operations */
    float update_rate = 77.0F;   /**< stored by parse */
    vantor_server_interface_t interface {
    }; /**< passed to read_frame */

private:
    bool initialised = false;
};

/** The backend after its initialisation. Blocks that it allocates for a session are numbered from 1. */
class ready_backend_test : public backend_test
{
protected:
    void SetUp() override;
};

} // namespace backend_tests

#endif
