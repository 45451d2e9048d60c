/** @file
 * Tests of taking frames without JSON documents: the frames, faults and missing frames of any stream are
 * those that the general parser finds.
 */
#include "client/frame_reader.h"

#include <cstring>
#include <functional>
#include <random>
#include <sstream>

#include <gmock/gmock.h>

#include "server_script.h"
#include "vantor/errors.h"
#include "vantor/loss_counter.h"

namespace vantor
{
namespace
{

using test::example_session;

/** The metadata of the example session. */
std::shared_ptr<const session_metadata> example_metadata()
{
    static const auto metadata =
        std::make_shared<const session_metadata>(decode_metadata(example_session().metadata));
    return metadata;
}

/** Size of the samples of a frame, in bytes. */
size_t payload_size()
{
    return example_metadata()->frame_length() * sizeof(sample);
}

/** A frame message of the example session. */
std::string frame_message(uint32_t number)
{
    return example_session().frame_header(number).dump() + "\n" + example_session().frame_payload(number);
}

/** Chooses the size of the next piece of a stream. */
using piece_rule = std::function<size_t(size_t left)>;

/** Receives a stream like the client, and describes everything that it finds. */
class receiver
{
public:
    /**
     * @param in_place  takes frames with a frame_reader
     * @param rule      chooses the size of the next piece
     */
    receiver(bool in_place, piece_rule rule) : rule_(std::move(rule)), in_place_(in_place)
    {
        parser_.expect_frames(payload_size());
    }

    /** Receives a stream; returns what it found. */
    std::vector<std::string> receive(std::string_view stream)
    {
        while (!stream.empty())
        {
            const auto piece = stream.substr(0, std::min(stream.size(), rule_(stream.size())));
            stream.remove_prefix(add(piece));
            while (take())
            {
            }
        }
        found_.push_back("within " + std::to_string(parser_.within_message()) + ", " +
                         std::to_string(parser_.missing()) + " missing, " +
                         std::to_string(parser_.position()) + " consumed");
        return found_;
    }

    /** Number of frames for which no document was built. */
    [[nodiscard]] size_t frames_in_place() const
    {
        return frames_in_place_;
    }

private:
    /** Adds a piece, or the part for which there is space. */
    size_t add(std::string_view piece)
    {
        const auto bytes = std::as_bytes(std::span(piece));
        if (!in_place_)
        {
            parser_.feed(bytes);
            return bytes.size();
        }
        const auto [first, second] = parser_.space();
        const auto count = std::min(bytes.size(), first.size() + second.size());
        const auto in_first = std::min(count, first.size());
        std::ranges::copy(bytes.first(in_first), first.begin());
        std::ranges::copy(bytes.subspan(in_first, count - in_first), second.begin());
        parser_.add(count);
        return count;
    }

    /** Takes the next frame, message or fault; false if more bytes are needed. */
    bool take()
    try
    {
        if (in_place_)
        {
            if (const auto known = reader_.take(parser_))
            {
                ++frames_in_place_;
                describe(*known);
                return true;
            }
            if (parser_.within_samples())
            {
                return false;
            }
        }
        return take_message();
    }
    catch (const error &fault)
    {
        ++damaged_;
        found_.emplace_back(fault.what());
        return true;
    }

    /** Takes the next message with the general parser; false if more bytes are needed. */
    bool take_message()
    {
        const auto received = parser_.next();
        if (!received)
        {
            return false;
        }
        if (!received->header.contains("result_info"))
        {
            found_.push_back(received->header.dump());
            return true;
        }
        const auto decoded = decode_frame(*received, example_metadata());
        reader_.learn(parser_, decoded);
        describe(decoded);
        return true;
    }

    /** Describes a frame with its header and samples, the number of missing frames, and where it ends. */
    void describe(const frame &decoded)
    {
        const auto &first = decoded.items().front();
        std::ostringstream text;
        text << losses_.add(first.tick, std::exchange(damaged_, 0), first.frame_delayed) << " missing, at "
             << parser_.position() << ": " << encode_frame(decoded);
        found_.push_back(text.str());
    }

    piece_rule rule_;
    bool in_place_;
    message_parser parser_;
    frame_reader reader_{example_metadata()};
    loss_counter losses_{20000.0};
    uint64_t damaged_ = 0;
    size_t frames_in_place_ = 0;
    std::vector<std::string> found_;
};

/** Everything at once. */
size_t everything(size_t left)
{
    return left;
}

TEST(frame_reader, takes_all_frames_after_the_first_without_a_document)
{
    std::string stream;
    for (uint32_t i = 0; i < 20; ++i)
    {
        stream += frame_message(i);
    }
    receiver fast(true, everything);
    EXPECT_EQ(fast.receive(stream), receiver(false, everything).receive(stream));
    EXPECT_EQ(fast.frames_in_place(), 19U);
}

TEST(frame_reader, takes_frames_whose_samples_arrive_in_place)
{
    const std::string stream = frame_message(0) + frame_message(1) + frame_message(2) + frame_message(3);
    const auto expected = receiver(false, everything).receive(stream);
    for (size_t size = 1; size < 700; ++size)
    {
        receiver fast(true, [size](size_t) { return size; });
        ASSERT_EQ(fast.receive(stream), expected) << "pieces of " << size << " bytes";
        ASSERT_EQ(fast.frames_in_place(), 3U) << "pieces of " << size << " bytes";
    }
}

TEST(frame_reader, takes_frames_again_after_other_messages_and_faults)
{
    const std::string log =
        R"({"status":"log","level":"INFO","module":"m","message":"text","payload_size":0})";
    const std::string other = R"({"result_info":[],"status":"ok","payload_size":380})";
    const std::string stream = frame_message(0) + log + "\n" + frame_message(1) + "noise" + frame_message(2) +
                               frame_message(3) + other + "\n" + std::string(380, 'x') + frame_message(5) +
                               "{]\nmore\n" + frame_message(6);
    receiver fast(true, everything);
    EXPECT_EQ(fast.receive(stream), receiver(false, everything).receive(stream));
    // The parser itself finds the frames that follow a fault on the same line or after another bad line.
    EXPECT_EQ(fast.frames_in_place(), 3U);
}

/** Damages a stream in a few places. */
std::string damaged(std::string stream, std::mt19937 &random)
{
    const auto pick = [&random](size_t bound) {
        return std::uniform_int_distribution<size_t>(0, bound - 1)(random);
    };
    for (size_t faults = pick(4); faults > 0; --faults)
    {
        const auto place = pick(stream.size());
        switch (pick(4))
        {
        case 0:
            stream[place] = static_cast<char>(pick(256));
            break;
        case 1:
            stream.erase(place, 1 + pick(10));
            break;
        case 2:
            stream.insert(place, std::string(1 + pick(3), "\n{}\"1x"[pick(6)]));
            break;
        default:
            stream[stream.find("\"tick\":", place) < stream.size() ? stream.find("\"tick\":", place) + 7
                                                                   : place] =
                static_cast<char>('0' + pick(12));
        }
    }
    return stream;
}

TEST(frame_reader, finds_in_damaged_streams_what_the_parser_finds)
{
    std::string stream;
    for (uint32_t i = 0; i < 12; ++i)
    {
        stream += frame_message(i + i / 5);
    }
    size_t in_place = 0;
    constexpr unsigned streams = 300;
    for (unsigned seed = 0; seed < streams; ++seed)
    {
        std::mt19937 random(seed);
        const auto bytes = damaged(stream, random);
        receiver fast(true, [&random](size_t) { return 1 + random() % 1000; });
        ASSERT_EQ(fast.receive(bytes), receiver(false, everything).receive(bytes)) << "seed " << seed;
        in_place += fast.frames_in_place();
    }
    EXPECT_GT(in_place, streams * 7);
}

TEST(frame_reader, leaves_an_incomplete_frame_to_the_parser)
{
    const std::string first = frame_message(0);
    const std::string second = frame_message(1);
    for (const size_t received :
         {second.find('\n') + 1, second.size() - 100, second.size() - 1, second.size()})
    {
        message_parser parser;
        frame_reader reader(example_metadata());
        parser.feed(std::as_bytes(std::span(first)));
        reader.learn(parser, decode_frame(*parser.next(), example_metadata()));
        parser.feed(std::as_bytes(std::span(second)).first(received));
        auto known = reader.take(parser);
        ASSERT_EQ(known.has_value(), received == second.size());
        if (known)
        {
            continue;
        }
        EXPECT_TRUE(parser.within_samples());
        EXPECT_EQ(parser.missing(), second.size() - received);
        EXPECT_FALSE(parser.next());
        EXPECT_FALSE(parser.within_samples());
        EXPECT_EQ(parser.missing(), second.size() - received);
        parser.feed(std::as_bytes(std::span(second)).subspan(received));
        EXPECT_FALSE(reader.take(parser));
        const auto message = parser.next();
        ASSERT_TRUE(message);
        EXPECT_EQ(message->position, first.size());
        EXPECT_EQ(message->header, example_session().frame_header(1));
        EXPECT_EQ(message->payload.size(), payload_size());
        EXPECT_EQ(
            std::memcmp(message->payload.data(), example_session().frame_payload(1).data(), payload_size()),
            0);
    }
}

TEST(frame_reader, uses_the_memory_of_frames_that_were_destroyed)
{
    message_parser parser;
    frame_reader reader(example_metadata());
    const auto receive = [&](uint32_t number) {
        const auto message = frame_message(number);
        parser.feed(std::as_bytes(std::span(message)));
        return reader.take(parser);
    };
    const std::string first = frame_message(0);
    parser.feed(std::as_bytes(std::span(first)));
    reader.learn(parser, decode_frame(*parser.next(), example_metadata()));
    const auto *const memory = receive(1).value().samples().data();
    auto kept = receive(2).value();
    EXPECT_EQ(kept.samples().data(), memory);
    const auto other = receive(3).value();
    EXPECT_NE(other.samples().data(), memory);
    EXPECT_EQ(kept.items()[0].tick, 40000U);
    EXPECT_EQ(other.items()[0].tick, 60000U);
    const auto moved = std::move(kept);
    EXPECT_EQ(moved.samples().data(), memory);
    EXPECT_EQ(moved.items()[0].samples.data(), memory);
}

} // namespace
} // namespace vantor
