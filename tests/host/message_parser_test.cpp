/** @file
 * Tests of the message parser: pieces of any size, faults, and recovery after a fault.
 */
#include "vantor/message_parser.h"

#include <string>

#include <gmock/gmock.h>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

using testing::HasSubstr;

/** Converts text to bytes. */
std::span<const std::byte> bytes(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

/** Converts a payload to text. */
std::string text(const std::vector<std::byte> &payload)
{
    std::string result;
    for (const auto byte : payload)
    {
        result += static_cast<char>(byte);
    }
    return result;
}

/** The bytes of a frame message. */
std::string wire(const std::string &payload)
{
    return R"({"result_info":[],"status":"ok","payload_size":)" + std::to_string(payload.size()) + "}\n" +
           payload;
}

/** Feeds a text and expects one fault, which it returns. */
bad_message fault_of(message_parser &parser, std::string_view text)
{
    parser.feed(bytes(text));
    try
    {
        parser.next();
    }
    catch (const bad_message &fault)
    {
        return fault;
    }
    ADD_FAILURE() << "no fault in " << text.substr(0, 80);
    return {0, ""};
}

TEST(message_parser, parses_a_message_with_payload)
{
    message_parser parser;
    parser.feed(bytes(wire("a\nb{c")));
    const auto received = parser.next();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->header["status"], "ok");
    EXPECT_EQ(text(received->payload), "a\nb{c");
    EXPECT_EQ(received->position, 0U);
    EXPECT_FALSE(parser.next());
    EXPECT_FALSE(parser.within_message());
    EXPECT_EQ(parser.position(), wire("a\nb{c").size());
}

TEST(message_parser, parses_several_messages_from_one_piece)
{
    message_parser parser;
    parser.feed(bytes(wire("") + wire("xyz") + wire("")));
    EXPECT_EQ(text(parser.next()->payload), "");
    const auto second = parser.next();
    EXPECT_EQ(text(second->payload), "xyz");
    EXPECT_EQ(second->position, wire("").size());
    EXPECT_TRUE(parser.next());
    EXPECT_FALSE(parser.next());
}

TEST(message_parser, accepts_pieces_of_any_size)
{
    const std::string stream = wire("first\n") + wire("") + wire("third");
    for (size_t cut = 0; cut <= stream.size(); ++cut)
    {
        message_parser parser;
        std::vector<std::string> payloads;
        for (const auto &piece : {stream.substr(0, cut), stream.substr(cut)})
        {
            parser.feed(bytes(piece));
            while (const auto received = parser.next())
            {
                payloads.push_back(text(received->payload));
            }
        }
        EXPECT_THAT(payloads, testing::ElementsAre("first\n", "", "third")) << "cut at " << cut;
    }
}

TEST(message_parser, accepts_single_bytes)
{
    const std::string stream = wire("first\n") + wire("second");
    message_parser parser;
    std::vector<std::string> payloads;
    for (const char c : stream)
    {
        parser.feed(bytes(std::string_view(&c, 1)));
        while (const auto received = parser.next())
        {
            payloads.push_back(text(received->payload));
        }
    }
    EXPECT_THAT(payloads, testing::ElementsAre("first\n", "second"));
}

TEST(message_parser, reports_that_it_is_within_a_message)
{
    message_parser parser;
    EXPECT_FALSE(parser.within_message());
    parser.feed(bytes("{"));
    EXPECT_FALSE(parser.next());
    EXPECT_TRUE(parser.within_message());
    parser.reset();
    EXPECT_FALSE(parser.within_message());
    parser.feed(bytes(wire("abc").substr(0, wire("abc").size() - 1)));
    EXPECT_FALSE(parser.next());
    EXPECT_TRUE(parser.within_message());
}

TEST(message_parser, reports_where_a_header_is_not_json)
{
    message_parser parser;
    parser.feed(bytes(wire("12")));
    ASSERT_TRUE(parser.next());
    const auto start = parser.position();
    const auto fault = fault_of(parser, "{\"status\":oops}\n");
    EXPECT_EQ(fault.position(), start + 10);
    EXPECT_THAT(fault.what(), HasSubstr("not valid JSON"));
}

TEST(message_parser, refuses_headers_without_the_required_members)
{
    const std::pair<const char *, const char *> cases[] = {
        {"[]\n", "not a JSON object"},
        {"7\n", "not a JSON object"},
        {"{\"payload_size\":0}\n", "\"status\""},
        {"{\"status\":1,\"payload_size\":0}\n", "\"status\""},
        {"{\"status\":\"ok\"}\n", "\"payload_size\""},
        {"{\"status\":\"ok\",\"payload_size\":\"8\"}\n", "\"payload_size\""},
        {"{\"status\":\"ok\",\"payload_size\":1.5}\n", "\"payload_size\""},
        {"{\"status\":\"ok\",\"payload_size\":-1}\n", "negative"},
        {"{\"status\":\"ok\",\"payload_size\":1}\n", "only a frame can have a payload"},
        {"{\"result_info\":[],\"status\":\"ok\",\"payload_size\":101}\n", "but at most 100 bytes"},
        {"{\"result_info\":[],\"status\":\"ok\",\"payload_size\":99999999999999999999}\n",
         "\"payload_size\""},
        {"{\"status\":\"ok\",\"payload_size\":1e999}\n", "out of range"},
        {"\n", "not valid JSON"},
        {"{\"status\":\"ok\",\"payload_size\":0}{}\n", "not valid JSON"},
    };
    for (const auto &[line, reason] : cases)
    {
        message_parser parser({.header = 1000, .payload = 100});
        EXPECT_THAT(fault_of(parser, line).what(), HasSubstr(reason)) << line;
    }
}

TEST(message_parser, refuses_deep_nesting_before_it_is_parsed)
{
    message_parser parser;
    const std::string start = R"({"status":"ok","x":)";
    const auto fault = fault_of(parser, start + std::string(100000, '[') + "\n");
    EXPECT_EQ(fault.position(), start.size() + 31);
    EXPECT_THAT(fault.what(), HasSubstr("nested too deeply"));
}

TEST(message_parser, does_not_count_brackets_in_strings)
{
    message_parser parser;
    parser.feed(bytes(R"({"status":"\"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[\\","payload_size":0})"
                      "\n"));
    EXPECT_TRUE(parser.next());
}

TEST(message_parser, drops_a_header_as_soon_as_it_is_too_long)
{
    message_parser parser({.header = 50, .payload = 100});
    const auto fault = fault_of(parser, std::string(51, 'x'));
    EXPECT_EQ(fault.position(), 0U);
    EXPECT_THAT(fault.what(), HasSubstr("longer than 50 bytes"));
    for (int i = 0; i < 100; ++i)
    {
        parser.feed(bytes(std::string(50, 'x')));
        EXPECT_FALSE(parser.next());
    }
    parser.feed(bytes("\n" + wire("abc")));
    const auto received = parser.next();
    ASSERT_TRUE(received);
    EXPECT_EQ(text(received->payload), "abc");
    EXPECT_EQ(received->position, 51U + 5000U + 1U);
}

TEST(message_parser, accepts_a_header_of_maximum_length)
{
    const std::string line = wire("");
    message_parser exact({.header = line.size() - 1, .payload = 100});
    exact.feed(bytes(line));
    EXPECT_TRUE(exact.next());
    message_parser short_by_one({.header = line.size() - 2, .payload = 100});
    fault_of(short_by_one, line);
}

TEST(message_parser, reports_one_fault_and_finds_the_next_message)
{
    message_parser parser;
    parser.feed(bytes("garbage\nmore garbage\n{}\n" + wire("found") + "again\n" + wire("")));
    EXPECT_THROW(parser.next(), bad_message);
    EXPECT_EQ(text(parser.next()->payload), "found");
    EXPECT_THROW(parser.next(), bad_message);
    EXPECT_TRUE(parser.next());
}

TEST(message_parser, finds_the_next_message_wherever_the_stream_was_joined)
{
    const std::string stream = wire("one\n{[") + wire("two");
    for (size_t lost = 0; lost <= stream.size(); ++lost)
    {
        message_parser parser;
        parser.feed(bytes(stream.substr(lost) + "\n" + wire("three") + wire("four")));
        std::string last;
        for (int i = 0; i < 20; ++i)
        {
            try
            {
                if (const auto received = parser.next())
                {
                    last = text(received->payload);
                }
            }
            catch (const bad_message &)
            {
                continue;
            }
        }
        EXPECT_EQ(last, "four") << lost << " bytes lost";
    }
}

/** A message with everything in its header that makes it hard to find its start. */
std::string frame_message(const std::string &payload)
{
    return R"({"result_info":[[{"tick":1},{"tick":2,"text":"\"}]{\\"}],[{}]],"status":"ok","payload_size":)" +
           std::to_string(payload.size()) + "}\n" + payload;
}

/** The payloads of all messages in a stream, and the number of faults. */
std::pair<std::vector<std::string>, int> read_all(const std::string &stream,
                                                  std::optional<size_t> frame_size = std::nullopt)
{
    message_parser parser;
    parser.expect_frames(frame_size);
    parser.feed(bytes(stream));
    std::pair<std::vector<std::string>, int> result;
    while (true)
    {
        try
        {
            const auto received = parser.next();
            if (!received)
            {
                return result;
            }
            result.first.push_back(text(received->payload));
        }
        catch (const bad_message &)
        {
            ++result.second;
        }
    }
}

TEST(message_parser, finds_the_next_frame_of_a_stream_whose_payloads_end_without_line_feed)
{
    const std::string stream = frame_message("one {\"[") + frame_message("two\n\\\"}") +
                               frame_message("three") + frame_message("four");
    for (size_t lost = 0; lost < frame_message("one {\"[").size() + frame_message("two\n\\\"}").size();
         ++lost)
    {
        auto damaged = stream;
        damaged.erase(lost, 1);
        const auto [payloads, faults] = read_all(damaged);
        EXPECT_THAT(payloads, testing::Contains("four")) << "byte " << lost << " lost";
        EXPECT_GE(payloads.size(), 2U) << "byte " << lost << " lost";
        damaged = stream;
        damaged.insert(lost, 1, 'x');
        EXPECT_THAT(read_all(damaged).first, testing::Contains("four")) << "byte added at " << lost;
    }
}

TEST(message_parser, loses_no_message_to_bytes_before_its_header)
{
    const auto [payloads, faults] =
        read_all(frame_message("one") + "noise" + frame_message("two") + "noise" + frame_message("three"));
    EXPECT_THAT(payloads, testing::ElementsAre("one", "two", "three"));
    EXPECT_EQ(faults, 2);
}

/** A payload of bytes of all values, among them line feeds, quotation marks and brackets. */
std::string mixed_payload(size_t size, unsigned seed)
{
    std::string payload(size, '\0');
    for (auto &byte : payload)
    {
        seed = seed * 1103515245U + 12345U;
        byte = static_cast<char>(seed >> 16U);
    }
    return payload;
}

TEST(message_parser, loses_at_most_two_frames_to_a_damaged_payload_size)
{
    constexpr size_t frames = 12;
    constexpr size_t size = 4852;
    std::vector<std::string> payloads;
    std::string stream;
    std::vector<size_t> starts;
    for (unsigned i = 0; i < frames; ++i)
    {
        payloads.push_back(mixed_payload(size, i));
        starts.push_back(stream.size());
        stream += frame_message(payloads.back());
    }
    const auto first_digit = stream.find("4852", starts[2]);
    for (size_t digit = first_digit; digit < first_digit + 4; ++digit)
    {
        for (int value = 0; value < 256; ++value)
        {
            auto damaged = stream;
            damaged[digit] = static_cast<char>(value);
            const auto received = read_all(damaged, size).first;
            EXPECT_GE(received.size(), frames - 2) << "digit " << digit - first_digit << " is " << value;
            EXPECT_THAT(payloads, testing::IsSupersetOf(received));
        }
    }
}

TEST(message_parser, reports_every_frame_of_another_size)
{
    const std::string stream = frame_message("1234") + frame_message("12345") + frame_message("a\nbcd") +
                               frame_message("") + frame_message("abcd");
    const auto [payloads, faults] = read_all(stream, 4);
    EXPECT_THAT(payloads, testing::ElementsAre("1234", "abcd"));
    EXPECT_EQ(faults, 3);
}

TEST(message_parser, accepts_frames_of_any_size_while_the_session_is_unknown)
{
    message_parser parser;
    parser.expect_frames(4);
    parser.feed(bytes(wire("12345")));
    EXPECT_THROW(parser.next(), bad_message);
    parser.reset();
    parser.feed(bytes(wire("12345") + R"({"status":"ok","payload_size":0})"
                                      "\n"));
    EXPECT_TRUE(parser.next());
    parser.expect_frames(4);
    EXPECT_TRUE(parser.next());
}

TEST(message_parser, counts_from_zero_after_a_reset)
{
    message_parser parser;
    parser.feed(bytes("half a line"));
    EXPECT_FALSE(parser.next());
    parser.reset();
    parser.feed(bytes(wire("x")));
    const auto received = parser.next();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->position, 0U);
}

} // namespace
} // namespace vantor
