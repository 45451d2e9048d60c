/** @file
 * Tests of the form of batches.
 */
#include "bridge/batch.h"

#include <limits>
#include <random>
#include <ranges>

#include <gmock/gmock.h>

#include "example_batch.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_batch;
using test::example_content;
using test::example_header;
using test::example_messages;
using testing::HasSubstr;
using testing::SizeIs;
using testing::ThrowsMessage;

/** The first line of an encoded batch. */
json line_of(const std::string &bytes)
{
    return json::parse(bytes.substr(0, bytes.find('\n')));
}

/** A batch with this first line. */
std::string with_line(const json &line, const std::string &messages)
{
    return line.dump() + "\n" + messages;
}

/** Expects that bytes are refused as a batch, with a reason. */
void expect_refused(const std::string &bytes, const std::string &reason)
{
    EXPECT_THAT([&] { return decode_batch(bytes); }, ThrowsMessage<bad_batch>(HasSubstr(reason)))
        << bytes.substr(0, 300);
}

/** Expects that a batch with two frames and a changed member is refused. */
void expect_member_refused(const char *name, const json &value)
{
    auto line = line_of(example_batch(2));
    line[name] = value;
    expect_refused(with_line(line, example_messages(2)), "");
}

/** A time and its bound after encoding and decoding. */
utc_time decoded(const utc_time &utc)
{
    auto header = example_header(1);
    header.utc = utc;
    return decode_batch_header(encode_batch(header, "")).utc.value();
}

/** A time since 1970. */
utc_time utc_at(std::chrono::nanoseconds since_1970, std::chrono::nanoseconds bound)
{
    return {.moment = std::chrono::sys_time<std::chrono::nanoseconds>(since_1970), .bound = bound};
}

TEST(batch, is_a_line_and_the_messages)
{
    const auto bytes = example_batch(2);
    EXPECT_EQ(
        bytes,
        R"({"vantor_batch":1,"site":"hall","board":"door","session":"2026-11-23T12:00:00.000Z-5f3a9c01",)"
        R"("number":17,"first":340,"frames":2,"missing":3,"size":)" +
            std::to_string(example_messages(2).size()) + "}\n" + example_messages(2));
}

TEST(batch, keeps_every_member_of_its_line)
{
    const auto header = decode_batch_header(example_batch(2));
    EXPECT_EQ(header.site, "hall");
    EXPECT_EQ(header.board, "door");
    EXPECT_EQ(header.session, "2026-11-23T12:00:00.000Z-5f3a9c01");
    EXPECT_EQ(header.number, 17U);
    EXPECT_EQ(header.first, 340U);
    EXPECT_EQ(header.frames, 2U);
    EXPECT_EQ(header.missing, 3U);
    EXPECT_FALSE(header.utc.has_value());
    EXPECT_EQ(header.content, nullptr);
    EXPECT_FALSE(header.end.has_value());
}

TEST(batch, keeps_large_counts)
{
    constexpr uint64_t most = std::numeric_limits<int64_t>::max() / 2;
    auto header = example_header(1);
    header.number = header.first = header.missing = most;
    const auto read = decode_batch_header(encode_batch(header, ""));
    EXPECT_EQ(read.number, most);
    EXPECT_EQ(read.first, most);
    EXPECT_EQ(read.missing, most);
}

TEST(batch, keeps_the_messages)
{
    const auto bytes = example_batch(3);
    const auto read = decode_batch(bytes);
    ASSERT_THAT(read.messages, SizeIs(3));
    for (uint32_t number = 0; number < 3; ++number)
    {
        EXPECT_EQ(read.messages[number], example_messages(1, number));
        // A part of the bytes, not a copy.
        EXPECT_GE(read.messages[number].data(), bytes.data());
        EXPECT_LE(read.messages[number].data() + read.messages[number].size(), bytes.data() + bytes.size());
    }
}

TEST(batch, keeps_what_describes_the_session)
{
    auto header = example_header(1);
    header.content = std::make_shared<const batch_session>(example_content());
    const auto content = decode_batch_header(encode_batch(header, "")).content;
    ASSERT_NE(content, nullptr);
    EXPECT_EQ(json(content->server), json(example_content().server));
    EXPECT_EQ(content->configuration, example_content().configuration);
    EXPECT_EQ(content->metadata, example_content().metadata);
}

TEST(batch, keeps_why_a_session_has_ended)
{
    auto header = example_header(0);
    header.end = "The link \"tcp:x\" was lost.";
    const auto bytes = encode_batch(header, "");
    const auto read = decode_batch(bytes);
    EXPECT_EQ(read.header.end, "The link \"tcp:x\" was lost.");
    EXPECT_THAT(read.messages, SizeIs(0));
}

TEST(batch, replaces_text_that_is_not_utf_8)
{
    auto header = example_header(0);
    header.end = "lost \xff";
    EXPECT_EQ(decode_batch_header(encode_batch(header, "")).end, "lost \xef\xbf\xbd");
}

TEST(batch, keeps_times_in_whole_microseconds)
{
    const auto read = decoded(utc_at(1795435217s + 123456us, 100us));
    EXPECT_EQ(read.moment.time_since_epoch(), 1795435217s + 123456us);
    EXPECT_EQ(read.bound, 100us);
}

TEST(batch, adds_what_it_cuts_off_to_the_bound)
{
    const auto read = decoded(utc_at(1795435217s + 123456789ns, 100ns));
    EXPECT_EQ(read.moment.time_since_epoch(), 1795435217s + 123456us);
    EXPECT_EQ(read.bound, 1us);
    EXPECT_EQ(decoded(utc_at(1795435217s + 123456789ns, 212ns)).bound, 2us);
    EXPECT_EQ(decoded(utc_at(-1ns, 0ns)).moment.time_since_epoch(), -1us);
}

TEST(batch, never_promises_more_about_a_time_than_was_known)
{
    std::mt19937_64 random(1);
    // Until the year 2100: later, a number of seconds is less exact than a microsecond.
    std::uniform_int_distribution<int64_t> moments(0, std::chrono::nanoseconds(4'100'000'000s).count());
    std::uniform_int_distribution<int64_t> bounds(0, 1'000'000'000);
    for (int i = 0; i < 2000; ++i)
    {
        const auto utc =
            utc_at(std::chrono::nanoseconds(moments(random)), std::chrono::nanoseconds(bounds(random)));
        const auto read = decoded(utc);
        const auto shift = utc.moment - read.moment;
        EXPECT_GE(read.bound.count(), (utc.bound + shift).count()) << utc.moment.time_since_epoch().count();
        EXPECT_GE(shift.count(), 0) << utc.moment.time_since_epoch().count();
        EXPECT_LT(read.bound.count(), (utc.bound + 2us).count());
    }
}

TEST(batch, needs_every_member_of_its_line)
{
    for (const char *name :
         {"vantor_batch", "site", "board", "session", "number", "first", "frames", "missing", "size"})
    {
        auto line = line_of(example_batch(2));
        line.erase(name);
        expect_refused(with_line(line, example_messages(2)), name);
    }
}

TEST(batch, refuses_members_of_another_type)
{
    const auto wrong = json::array({nullptr, true, -1, 1.5, "", json::array(), json::object()});
    for (const char *name : {"vantor_batch", "site", "board", "number", "first", "frames", "missing", "size"})
    {
        for (const auto &value : wrong)
        {
            expect_member_refused(name, value);
        }
    }
    for (const auto &value : json::array({nullptr, true, 1, json::array(), json::object()}))
    {
        expect_member_refused("session", value);
        expect_member_refused("end", value);
    }
}

TEST(batch, refuses_counts_that_are_too_large)
{
    for (const char *name : {"number", "first", "frames", "missing", "size"})
    {
        expect_member_refused(name, uint64_t{1} << 62U);
        expect_member_refused(name, std::numeric_limits<uint64_t>::max());
    }
}

TEST(batch, refuses_another_version)
{
    auto line = line_of(example_batch(1));
    line["vantor_batch"] = 2;
    expect_refused(with_line(line, example_messages(1)), "a newer Vantor");
}

TEST(batch, refuses_times_that_make_no_sense)
{
    auto header = example_header(1);
    header.utc = utc_at(1795435217s, 100us);
    const auto valid = line_of(encode_batch(header, example_messages(1)));
    for (const auto &[name, value] : std::vector<std::pair<std::string, json>>{{"utc_s", 1e10},
                                                                               {"utc_s", -1e10},
                                                                               {"utc_s", "0"},
                                                                               {"utc_s", nullptr},
                                                                               {"utc_bound_s", -1e-6},
                                                                               {"utc_bound_s", 1e10},
                                                                               {"utc_bound_s", true},
                                                                               {"utc_bound_s", nullptr}})
    {
        auto line = valid;
        line[name] = value;
        expect_refused(with_line(line, example_messages(1)), "");
        line.erase(name);
        expect_refused(with_line(line, example_messages(1)), name);
    }
    const auto beyond_numbers = R"({"utc_bound_s":1e400,)" + valid.dump().substr(1) + "\n";
    expect_refused(beyond_numbers, "");
}

TEST(batch, refuses_a_session_that_is_not_complete)
{
    auto header = example_header(1);
    header.content = std::make_shared<const batch_session>(example_content());
    const auto valid = line_of(encode_batch(header, example_messages(1)));
    for (const char *name : {"server", "configuration", "metadata"})
    {
        for (const auto &value : json::array({nullptr, 1, "", json::array()}))
        {
            auto line = valid;
            line[name] = value;
            expect_refused(with_line(line, example_messages(1)), name);
        }
    }
    for (const char *name : {"server", "configuration"})
    {
        auto line = valid;
        line.erase(name);
        expect_refused(with_line(line, example_messages(1)), name);
    }
}

TEST(batch, ignores_members_that_it_does_not_know)
{
    auto line = line_of(example_batch(1));
    line["later"] = {{"a", 1}};
    const auto bytes = with_line(line, example_messages(1));
    EXPECT_THAT(decode_batch(bytes).messages, SizeIs(1));
}

TEST(batch, refuses_another_size_than_it_announces)
{
    const auto bytes = example_batch(2);
    expect_refused(bytes + "x", "not complete, or too long");
    expect_refused(bytes.substr(0, bytes.size() - 1), "not complete, or too long");
}

TEST(batch, refuses_another_number_of_frames_than_it_announces)
{
    for (const uint64_t frames : {0U, 1U, 3U})
    {
        expect_refused(encode_batch(example_header(frames), example_messages(2)), "number of frames");
    }
}

TEST(batch, refuses_what_is_not_a_frame)
{
    const auto frame = example_messages(1);
    const std::string answer = "{\"status\":\"ok\",\"command\":\"stop\",\"payload_size\":0}\n";
    expect_refused(encode_batch(example_header(2), frame + answer), "not a frame");
    expect_refused(encode_batch(example_header(2), answer + frame), "not a frame");
    expect_refused(encode_batch(example_header(1), frame + "x"), "number of frames");
    expect_refused(encode_batch(example_header(1), frame + "{}\n"), "");
    expect_refused(encode_batch(example_header(1), "x" + frame), "");
    expect_refused(encode_batch(example_header(1), "\n" + frame), "");
    expect_refused(encode_batch(example_header(2), frame + frame.substr(0, frame.size() - 1)),
                   "number of frames");
}

TEST(batch, refuses_what_does_not_begin_with_an_object)
{
    for (const char *line : {"", "{", "null", "[]", "1", "\"x\"", "{}", "{} {}", "\xff", "{\"a\":1,\"a\":2}"})
    {
        expect_refused(std::string(line) + "\n", "");
    }
    expect_refused(std::string("{\0}\n", 4), "");
    expect_refused("", "no first line");
    expect_refused(line_of(example_batch(0)).dump(), "no first line");
}

TEST(batch, refuses_a_line_that_is_nested_too_deeply)
{
    constexpr size_t depth = 100'000;
    auto line = line_of(example_batch(0)).dump();
    line.insert(1, R"("later":)" + std::string(depth, '[') + std::string(depth, ']') + ",");
    expect_refused(line + "\n", "levels deep");
}

TEST(batch, refuses_a_line_that_is_too_long)
{
    constexpr size_t longest_line = size_t{4} << 20U;
    auto header = example_header(0);
    header.end = "";
    const auto rest = encode_batch(header, "").size();
    header.end = std::string(longest_line - rest, 'x');
    EXPECT_EQ(decode_batch_header(encode_batch(header, "")).end, header.end);
    *header.end += 'x';
    expect_refused(encode_batch(header, ""), "no first line");
}

/** A batch in which some bytes were changed, removed, added or repeated. */
std::string mutated(std::string bytes, std::mt19937 &random)
{
    const auto below = [&random](size_t end) {
        return std::uniform_int_distribution<size_t>(0, end - 1)(random);
    };
    static constexpr std::string_view pieces = "{}[]\",:\n0919.-eE\\tn\xff\x00\x80 {\"result_info\":";
    for (auto count = 1 + below(4); count > 0; --count)
    {
        const auto at = below(bytes.size());
        switch (below(5))
        {
        case 0:
            bytes[at] = pieces[below(pieces.size())];
            break;
        case 1:
            bytes[at] = static_cast<char>(below(256));
            break;
        case 2:
            bytes.erase(at, 1 + below(8));
            break;
        case 3:
            bytes.insert(at, pieces.substr(below(pieces.size()), 1 + below(4)));
            break;
        default:
            bytes.insert(at, bytes.substr(below(bytes.size()), 1 + below(40)));
        }
        if (bytes.empty())
        {
            return bytes;
        }
    }
    return bytes;
}

/** Decodes bytes, and checks what is true of every batch; false if they are not one. */
bool is_decoded(const std::string &bytes)
try
{
    const auto read = decode_batch(bytes);
    EXPECT_EQ(read.messages.size(), read.header.frames);
    EXPECT_TRUE(is_batch_name(read.header.site) && is_batch_name(read.header.board));
    std::string messages;
    for (const auto message : read.messages)
    {
        messages += message;
    }
    EXPECT_EQ(messages, bytes.substr(bytes.find('\n') + 1));
    EXPECT_EQ(decode_batch_header(encode_batch(read.header, messages)).missing, read.header.missing);
    return true;
}
catch (const bad_batch &)
{
    return false;
}

TEST(batch, is_decoded_or_refused_whatever_arrives)
{
    auto header = example_header(2);
    header.content = std::make_shared<const batch_session>(
        batch_session{.server = json::object(), .configuration = json::object(), .metadata = json::object()});
    header.utc = utc_at(1795435217s, 100us);
    header.end = "x";
    const auto whole = encode_batch(header, example_messages(2));
    const auto line = encode_batch(example_header(0), "");
    ASSERT_TRUE(is_decoded(whole));
    std::mt19937 random(1);
    size_t accepted = 0;
    for (int i = 0; i < 10'000; ++i)
    {
        accepted += is_decoded(mutated(i % 2 == 0 ? whole : line, random)) ? 1 : 0;
    }
    // Both happen: some changes are harmless.
    EXPECT_GT(accepted, 100U);
    EXPECT_LT(accepted, 5'000U);
}

TEST(batch, has_a_name_that_no_other_has)
{
    auto header = example_header(1);
    EXPECT_EQ(batch_id(header), "door/2026-11-23T12:00:00.000Z-5f3a9c01/17");
    header.number = 18;
    EXPECT_EQ(batch_id(header), "door/2026-11-23T12:00:00.000Z-5f3a9c01/18");
}

TEST(batch, knows_names_of_sites_and_boards)
{
    for (const char *name : {"a", "Z", "0", "-", "_", "Hall-2_east"})
    {
        EXPECT_TRUE(is_batch_name(name)) << name;
    }
    EXPECT_TRUE(is_batch_name(std::string(64, 'x')));
    EXPECT_FALSE(is_batch_name(std::string(65, 'x')));
    for (const char *name : {"", " ", "a b", "a.b", "a*", ">", "a/b", "ä", "a\n"})
    {
        EXPECT_FALSE(is_batch_name(name)) << name;
    }
    EXPECT_FALSE(is_batch_name(std::string_view("a\0b", 3)));
}

TEST(batch, makes_names_of_any_text)
{
    EXPECT_EQ(to_batch_name("Hall-2_east"), "Hall-2_east");
    EXPECT_EQ(to_batch_name("Hall 2.east"), "Hall-2-east");
    EXPECT_EQ(to_batch_name("ä"), "--");
    EXPECT_EQ(to_batch_name(""), "board");
    EXPECT_EQ(to_batch_name(std::string(100, 'x')), std::string(64, 'x'));
}

} // namespace
} // namespace vantor
