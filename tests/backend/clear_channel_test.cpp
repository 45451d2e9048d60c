/** @file
 * Clear-channel assessment: the transmitter reacts to the channel state one frame later.
 */
#include <limits>
#include <string>
#include <vector>

#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

/** A session with one item: assessment enabled, threshold 0.5, debug members enabled. */
class clear_channel : public ready_backend_test
{
protected:
    void SetUp() override
    {
        ready_backend_test::SetUp();
        begin_session();
    }

    void begin_session()
    {
        ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true, "cca_threshold": 0.5,)"
                                R"( "cca_debug": true})"));
    }

    void begin_next_session()
    {
        destroy_session();
        begin_session();
    }

    /** Reads a frame in which the assessment measures this value; returns the assessment members of the
     * message. */
    std::string assessment_members(float cca_value)
    {
        neighbours().cca_values = {cca_value};
        EXPECT_TRUE(read_frame());
        const std::string &document = sent_document();
        const size_t begin = document.find(R"("data_valid")");
        return document.substr(begin, document.find('}') - begin);
    }

    /** Whether the last operation prepared the sensor. */
    static bool prepared()
    {
        return neighbours().calls.count("zet_sensor_prepare") == 1;
    }

    /** How the last operation switched the transmitter: "on", "off" or "". */
    static std::string switched()
    {
        const std::string call =
            "zet_config_enable_tx_set(config " + std::to_string(neighbours().configs_created);
        std::string text;
        text += neighbours().calls.count(call + ", true)") == 1 ? "on" : "";
        text += neighbours().calls.count(call + ", false)") == 1 ? "off" : "";
        return text;
    }

    /** Turns the transmitter on by measuring a clear channel. */
    void switch_on()
    {
        (void)assessment_members(0.0F);
        ASSERT_EQ(switched(), "on");
    }
};

} // namespace

TEST_F(clear_channel, switches_the_transmitter_on_and_then_delivers_valid_data)
{
    EXPECT_EQ(assessment_members(0.25F),
              R"("data_valid":false,"cca_value":0.25,"cca_detected":false,"tx_enabled":false)");
    EXPECT_EQ(switched(), "on");
    EXPECT_FALSE(prepared()) << "already prepared by the configuration step";

    EXPECT_EQ(assessment_members(0.375F),
              R"("data_valid":true,"cca_value":0.375,"cca_detected":false,"tx_enabled":true)");
    EXPECT_EQ(switched(), "");
    EXPECT_TRUE(prepared()) << "with the transmitter on";

    EXPECT_EQ(assessment_members(0.375F),
              R"("data_valid":true,"cca_value":0.375,"cca_detected":false,"tx_enabled":true)");
    EXPECT_FALSE(prepared());
}

TEST_F(clear_channel, starts_with_the_transmitter_off_whatever_its_state_at_the_end_of_the_last_session)
{
    const std::vector<std::vector<float>> endings{
        // Off, before any frame.
        {},
        // Off.
        {0.75F},
        // Just switched on.
        {0.0F},
        // On.
        {0.0F, 0.0F},
        // Just switched off.
        {0.0F, 0.75F},
    };
    for (const std::vector<float> &ending : endings)
    {
        SCOPED_TRACE(testing::PrintToString(ending));
        begin_next_session();
        for (const float cca_value : ending)
        {
            (void)assessment_members(cca_value);
        }
        begin_next_session();
        EXPECT_EQ(switched(), "off");
        EXPECT_TRUE(prepared()) << "with the transmitter off";

        EXPECT_EQ(assessment_members(0.25F),
                  R"("data_valid":false,"cca_value":0.25,"cca_detected":false,"tx_enabled":false)");
        EXPECT_EQ(switched(), "on");
        EXPECT_FALSE(prepared()) << "already prepared by the configuration step";
        EXPECT_EQ(assessment_members(0.25F),
                  R"("data_valid":true,"cca_value":0.25,"cca_detected":false,"tx_enabled":true)");
        EXPECT_TRUE(prepared()) << "with the transmitter on";
    }
}

TEST_F(clear_channel, makes_its_calls_in_order)
{
    neighbours().cca_values = {0.25F};
    ASSERT_TRUE(read_frame());
    const std::string all = calls(call_kind_t::sensor_library);
    EXPECT_TRUE(all.ends_with(lines({
        "zet_sensor_read(sensor 1, block 1, 64)",
        "zet_processing_cca_check(processing 1, block 1)",
        "zet_config_enable_tx_set(config 1, true)",
        "zet_processing_execute(processing 1, block 1)",
    }))) << all;
}

TEST_F(clear_channel, busy_while_listening_keeps_the_transmitter_off)
{
    EXPECT_EQ(assessment_members(0.75F),
              R"("data_valid":false,"cca_value":0.75,"cca_detected":true,"tx_enabled":false)");
    EXPECT_EQ(switched(), "");
    EXPECT_EQ(assessment_members(0.75F),
              R"("data_valid":false,"cca_value":0.75,"cca_detected":true,"tx_enabled":false)");
    EXPECT_FALSE(prepared());
}

TEST_F(clear_channel, busy_while_transmitting_switches_off_until_one_frame_after_the_channel_is_clear)
{
    switch_on();
    EXPECT_EQ(assessment_members(0.75F),
              R"("data_valid":false,"cca_value":0.75,"cca_detected":true,"tx_enabled":true)");
    EXPECT_EQ(switched(), "off");
    EXPECT_EQ(assessment_members(0.25F),
              R"("data_valid":false,"cca_value":0.25,"cca_detected":false,"tx_enabled":false)");
    EXPECT_TRUE(prepared()) << "with the transmitter off";
    EXPECT_EQ(switched(), "on");
    EXPECT_EQ(assessment_members(0.25F),
              R"("data_valid":true,"cca_value":0.25,"cca_detected":false,"tx_enabled":true)");
    EXPECT_TRUE(prepared());
}

TEST_F(clear_channel, value_equal_to_the_threshold_counts_as_clear_while_transmitting)
{
    switch_on();
    EXPECT_EQ(assessment_members(0.5F),
              R"("data_valid":true,"cca_value":0.5,"cca_detected":false,"tx_enabled":true)");
    EXPECT_EQ(switched(), "");
}

TEST_F(clear_channel, value_equal_to_the_threshold_counts_as_clear_while_listening)
{
    EXPECT_EQ(assessment_members(0.5F),
              R"("data_valid":false,"cca_value":0.5,"cca_detected":false,"tx_enabled":false)");
    EXPECT_EQ(switched(), "on");
}

TEST_F(clear_channel, nan_while_transmitting_counts_as_valid_once_and_changes_no_configuration)
{
    switch_on();
    EXPECT_EQ(assessment_members(not_a_number),
              R"("data_valid":true,"cca_value":null,"cca_detected":false,"tx_enabled":true)");
    EXPECT_EQ(switched(), "");
    EXPECT_EQ(assessment_members(0.25F),
              R"("data_valid":false,"cca_value":0.25,"cca_detected":false,"tx_enabled":false)")
        << "the transmitter counts as off";
    EXPECT_FALSE(prepared());
    EXPECT_EQ(switched(), "on");
}

TEST_F(clear_channel, nan_while_listening_switches_nothing)
{
    EXPECT_EQ(assessment_members(not_a_number),
              R"("data_valid":false,"cca_value":null,"cca_detected":false,"tx_enabled":false)");
    EXPECT_EQ(switched(), "");
    EXPECT_FALSE(prepared());
}

TEST_F(clear_channel, refused_assessment_changes_nothing)
{
    switch_on();
    refuse("zet_processing_cca_check");
    EXPECT_FALSE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_processing_execute"), 0U);
    EXPECT_EQ(switched(), "");
    EXPECT_EQ(assessment_members(0.25F),
              R"("data_valid":true,"cca_value":0.25,"cca_detected":false,"tx_enabled":true)");
}

TEST_F(clear_channel, failed_prepare_still_clears_the_need_to_prepare)
{
    switch_on();
    refuse("zet_sensor_prepare");
    EXPECT_FALSE(read_frame());
    EXPECT_EQ(assessment_members(0.25F),
              R"("data_valid":true,"cca_value":0.25,"cca_detected":false,"tx_enabled":true)");
    EXPECT_FALSE(prepared());
}

TEST_F(clear_channel, invalid_data_is_still_processed_and_sent)
{
    (void)assessment_members(0.75F);
    EXPECT_EQ(neighbours().calls.count("zet_processing_execute(processing 1, block 1)"), 1U);
    EXPECT_EQ(neighbours().calls.count("write(frame 1, 16)"), 1U);
}

} // namespace backend_tests
