/** @file
 * The bytes of 10,000 messages are those that earlier versions sent: metadata and frame headers of random
 * sessions, from the backend through the real JSON utilities and the real writer.
 */
#include <array>
#include <bit>
#include <cmath>
#include <random>

#include "recorded_messages.h"
#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

constexpr size_t messages_in_block = 100;
constexpr int frames_in_session = 24;
constexpr uint16_t most_items_in_group = 5;
constexpr int most_items = 50;

/** Random values, the same in every run and with every compiler. */
class random_values
{
public:
    explicit random_values(uint32_t seed) : generator(seed)
    {
    }

    /** A number from 0 to @p most. */
    uint32_t up_to(uint32_t most)
    {
        return bits() % (most + 1);
    }

    bool coin()
    {
        return up_to(1) != 0;
    }

    /** Any finite number, half of them short ones. */
    float number()
    {
        if (coin())
        {
            return static_cast<float>(up_to(4000)) / 8.0F;
        }
        const auto value = std::bit_cast<float>(bits());
        return std::isfinite(value) ? value : 0.0F;
    }

private:
    uint32_t bits()
    {
        return static_cast<uint32_t>(generator());
    }

    std::mt19937 generator;
};

/** The layout of an item's frames. */
zet_processing_metadata_t random_layout(random_values &values)
{
    zet_processing_metadata_t layout{};
    layout.frame_data_length = static_cast<uint16_t>(values.up_to(3));
    layout.sweep_data_length = static_cast<uint16_t>(values.up_to(UINT16_MAX));
    for (size_t i = 0; i < std::size(layout.subsweep_data_offset); ++i)
    {
        layout.subsweep_data_offset[i] = static_cast<uint16_t>(values.up_to(UINT16_MAX));
        layout.subsweep_data_length[i] = static_cast<uint16_t>(values.up_to(999));
    }
    layout.max_sweep_rate = values.number();
    layout.high_speed_mode = values.coin();
    return layout;
}

/** An item of a configuration. */
std::string random_item(random_values &values)
{
    std::string subsweeps = "{}";
    for (uint32_t more = values.up_to(3); more != 0; --more)
    {
        subsweeps += ", {}";
    }
    std::string assessment;
    if (values.coin())
    {
        assessment = std::string(R"(, "cca_enable": true, "cca_threshold": 0.5, "cca_debug": )") +
                     (values.coin() ? "true" : "false");
    }
    return R"({"sensor_id": )" + std::to_string(1 + values.up_to(most_items_in_group - 1)) +
           R"(, "config": {"subsweeps": [)" + subsweeps + "]}" + assessment + "}";
}

/** A list of one to @p most parts in brackets. */
template <typename part_t> std::string random_list(random_values &values, uint32_t most, const part_t &part)
{
    std::string list;
    for (uint32_t more = values.up_to(most - 1) + 1; more != 0; --more)
    {
        list += (list.empty() ? "" : ", ") + part();
    }
    return "[" + list + "]";
}

/** A configuration with up to ten groups of up to five items, mostly fewer. */
std::string random_document(random_values &values)
{
    const uint32_t most_groups = values.up_to(7) == 0 ? 10 : 3;
    return R"({"groups": )" +
           random_list(values, most_groups,
                       [&] {
                           return random_list(values, most_items_in_group,
                                              [&] { return random_item(values); });
                       }) +
           "}";
}

/** The FNV-1a hash of a text, continued from that of another one. */
uint64_t hash(uint64_t start, const std::string &text)
{
    for (const char character : text)
    {
        start = (start ^ static_cast<uint8_t>(character)) * 0x100000001b3;
    }
    return start;
}

} // namespace

/** Sessions whose messages are hashed. */
class recorded_messages : public backend_test
{
protected:
    void SetUp() override
    {
        backend_test::SetUp();
        neighbours().sensor_count = most_items_in_group;
        ASSERT_TRUE(init());
    }

    /** The hash of a block of messages. */
    uint64_t hash_block(uint32_t number)
    {
        random_values values(number);
        uint64_t result = 0xcbf29ce484222325;
        for (size_t sent = 0; sent < messages_in_block; sent += 1 + frames_in_session)
        {
            begin_session(values);
            result = hash(result, message([&] { return send_metadata(values.up_to(UINT32_MAX - 1)); }));
            for (int frame = 0; frame < frames_in_session; ++frame)
            {
                set_results(values);
                result = hash(result, message([&] { return read_frame(); }));
            }
            destroy_session();
        }
        return result;
    }

    std::string first_message; /**< of the last block */

private:
    void begin_session(random_values &values)
    {
        auto &state = neighbours();
        state.metadata.clear();
        state.frames.clear();
        state.results.clear();
        for (int item = 0; item < most_items; ++item)
        {
            state.metadata.push_back(random_layout(values));
        }
        for (zet_sensor_id_t sensor = 1; sensor <= state.sensor_count; ++sensor)
        {
            state.temperatures[sensor] = static_cast<int16_t>(values.up_to(UINT16_MAX) - 32768);
        }
        first_item = state.processings_created + 1;
        EXPECT_TRUE(parse(random_document(values))) << error;
        first_message.clear();
    }

    void set_results(random_values &values)
    {
        auto &state = neighbours();
        state.next_tick = values.up_to(UINT32_MAX - 1);
        state.cca_values.clear();
        for (int item = first_item; item <= state.processings_created; ++item)
        {
            state.results[item] = {values.coin(), values.coin(), values.coin(),
                                   static_cast<int16_t>(values.up_to(UINT16_MAX) - 32768), nullptr};
            state.cca_values.push_back(values.number());
        }
    }

    /** The text that an operation sends, without samples. */
    template <typename operation_t> std::string message(const operation_t &operation)
    {
        neighbours().documents.clear();
        EXPECT_TRUE(operation()) << error;
        std::string text;
        for (const auto &part : neighbours().documents)
        {
            text += part;
        }
        EXPECT_TRUE(text.ends_with("}\n")) << text;
        first_message = first_message.empty() ? text : first_message;
        return text;
    }

    int first_item = 1;
};

TEST_F(recorded_messages, are_the_same_bytes)
{
    for (uint32_t number = 0; number < recorded_hashes.size(); ++number)
    {
        const uint64_t found = hash_block(number);
        EXPECT_EQ(found, recorded_hashes[number]) << "block " << number << ": 0x" << std::hex << found << "\n"
                                                  << "its last session begins with " << first_message;
    }
}

} // namespace backend_tests
