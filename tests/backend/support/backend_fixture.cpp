/** @file
 * Fixtures around the backend.
 */
#include "backend_fixture.h"

namespace backend_tests
{

void backend_test::SetUp()
{
    reset_neighbours();
    interface.write = write_to_host;
    interface.get_tick = read_tick;
}

void backend_test::TearDown()
{
    if (initialised)
    {
        finish();
    }
}

bool backend_test::init(zet_log_level_t level)
{
    neighbours().calls.clear();
    const backend_scope_t scope;
    initialised = true;
    return zet_vantor_server_system_init(level);
}

void backend_test::deinit()
{
    neighbours().calls.clear();
    const backend_scope_t scope;
    initialised = false;
    zet_vantor_server_system_deinit();
}

void backend_test::destroy_session()
{
    neighbours().calls.clear();
    const backend_scope_t scope;
    zet_vantor_server_system_destroy_session();
}

bool backend_test::parse(const std::string &document)
{
    cJSON *input = cJSON_Parse(document.c_str());
    EXPECT_NE(input, nullptr) << "the document in this test is not valid JSON: " << document;
    neighbours().calls.clear();
    bool result = false;
    {
        const backend_scope_t scope;
        result = zet_vantor_server_system_parse_configuration(input, &update_rate, &error);
    }
    cJSON_Delete(input);
    return result;
}

bool backend_test::parse_group(const std::string &items)
{
    return parse(R"({"groups": [[)" + items + "]]}");
}

bool backend_test::parse_config(const std::string &config)
{
    return parse_group(R"({"sensor_id": 1, "config": )" + config + "}");
}

bool backend_test::send_metadata(uint32_t tick_period)
{
    neighbours().calls.clear();
    const backend_scope_t scope;
    return zet_vantor_server_system_send_session_metadata(write_to_host, tick_period);
}

bool backend_test::prepare_only()
{
    neighbours().calls.clear();
    const backend_scope_t scope;
    return zet_vantor_server_system_read_data_frames(nullptr, &error);
}

bool backend_test::read_frame()
{
    neighbours().calls.clear();
    const backend_scope_t scope;
    return zet_vantor_server_system_read_data_frames(&interface, &error);
}

std::string backend_test::calls()
{
    return neighbours().calls.text({call_kind_t::board, call_kind_t::sensor_library, call_kind_t::memory,
                                    call_kind_t::log, call_kind_t::link});
}

std::string backend_test::calls(call_kind_t kind)
{
    return neighbours().calls.text({kind});
}

std::string backend_test::json_from(const std::string &beginning)
{
    const std::string json = calls(call_kind_t::json);
    const size_t position = json.find(beginning);
    return position == std::string::npos ? "no call " + beginning + " in\n" + json : json.substr(position);
}

void backend_test::refuse_member(const json_member_t &member)
{
    refuse(member.operation + ":" + member.key);
}

std::string backend_test::json_after(const json_member_t &member)
{
    const std::string from = json_from(member.operation + "(\"" + member.key + "\"");
    return from.substr(from.find('\n') + 1);
}

std::string backend_test::sent_document()
{
    const auto &documents = neighbours().documents;
    return documents.empty() ? "nothing sent" : documents.back();
}

void backend_test::finish(size_t leaked_documents)
{
    destroy_session();
    deinit();
    EXPECT_EQ(delete_leaked_json(), leaked_documents);
    EXPECT_EQ(memory().live_blocks(), 0U) << "memory was leaked";
}

void ready_backend_test::SetUp()
{
    backend_test::SetUp();
    ASSERT_TRUE(init());
    memory().number_from_one();
    neighbours().calls.clear();
}

} // namespace backend_tests
