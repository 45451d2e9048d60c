/** @file
 * Tests of reading frame headers in place: whatever it accepts, the general parser reads in the same way.
 * VANTOR_CAMPAIGN_SIZE sets the number of generated headers.
 */
#include "client/header_form.h"

#include <bit>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

#include <gmock/gmock.h>

#include "vantor/errors.h"
#include "vantor/message_parser.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;

/** Number of points in each item. */
constexpr size_t points = 2;

/** Metadata with these numbers of items in the groups. */
std::shared_ptr<const session_metadata> metadata_of(const std::vector<size_t> &groups)
{
    json list = json::array();
    for (const auto count : groups)
    {
        list.push_back(json(count, {{"calibration_temperature", 24},
                                    {"frame_data_length", points},
                                    {"sweep_data_length", points},
                                    {"max_sweep_rate", 3125.5},
                                    {"high_speed_mode", true},
                                    {"base_step_length_m", 0.0025},
                                    {"subsweep_data_offset", json::array({0})},
                                    {"subsweep_data_length", json::array({points})}}));
    }
    return std::make_shared<const session_metadata>(
        decode_metadata({{"status", "ok"}, {"tick_period", 0}, {"payload_size", 0}, {"metadata", list}}));
}

/** What the general parser finds in a header line: a frame, or nothing. */
std::optional<frame> parsed(const std::string &line, const std::shared_ptr<const session_metadata> &metadata)
try
{
    message_parser parser;
    const auto size = metadata->frame_length() * sizeof(sample);
    parser.expect_frames(size);
    const auto text = line + "\n" + std::string(size, 'x');
    parser.feed(std::as_bytes(std::span(text)));
    const auto received = parser.next();
    if (!received || received->position != 0 || parser.position() != text.size())
    {
        return std::nullopt;
    }
    return decode_frame(*received, metadata);
}
catch (const bad_message &)
{
    return std::nullopt;
}
catch (const protocol_error &)
{
    return std::nullopt;
}

/** The values of an item that its header contains. */
auto values(const frame_item &item)
{
    const auto bits = item.cca_value ? std::optional(std::bit_cast<uint64_t>(*item.cca_value)) : std::nullopt;
    const auto utc = item.utc ? std::optional(std::pair(item.utc->moment, item.utc->bound)) : std::nullopt;
    return std::tuple(item.tick, item.temperature, item.data_saturated, item.calibration_needed,
                      item.frame_delayed, item.data_valid, bits, item.cca_detected, item.tx_enabled, utc);
}

/** Whether a header was read as the frame that the general parser has found. */
bool is_read_as(const frame &expected, const header_form &form)
{
    return std::ranges::equal(expected.items(), form.items(), {}, values, values) &&
           expected.missing() == form.missing();
}

/** A header with one item. */
std::string header(const std::string &members,
                   const std::string &rest = R"(,"status":"ok","payload_size":8})")
{
    return R"({"result_info":[[{)" + members + "}]]" + rest;
}

/** The members that every item has. */
std::string members(const std::string &tick, const std::string &temperature = "27",
                    const std::string &flag = "false")
{
    return R"("tick":)" + tick + R"(,"data_saturated":)" + flag + R"(,"temperature":)" + temperature +
           R"(,"calibration_needed":false,"frame_delayed":false)";
}

/** A form that was learned from a header of one item. */
header_form form_of(const std::string &line)
{
    header_form form;
    const auto received = parsed(line, metadata_of({1}));
    EXPECT_TRUE(received) << line;
    if (received)
    {
        form.learn(line, received->items());
    }
    return form;
}

TEST(header_form, reads_other_values)
{
    auto form = form_of(header(members("1")));
    ASSERT_TRUE(form.read(header(members("4294967295", "-32768", "true"))));
    ASSERT_EQ(form.items().size(), 1U);
    EXPECT_EQ(form.items()[0].tick, 4294967295U);
    EXPECT_EQ(form.items()[0].temperature, -32768);
    EXPECT_TRUE(form.items()[0].data_saturated);
    EXPECT_FALSE(form.items()[0].frame_delayed);
    EXPECT_FALSE(form.items()[0].data_valid);
    ASSERT_TRUE(form.read(header(members("0", "0"))));
    EXPECT_EQ(form.items()[0].tick, 0U);
    EXPECT_FALSE(form.items()[0].data_saturated);
}

TEST(header_form, reads_clear_channel_assessments)
{
    const std::string debug = R"(,"data_valid":true,"cca_detected":false,"tx_enabled":true,"cca_value":)";
    auto form = form_of(header(members("1") + debug + "1.5"));
    const std::pair<const char *, double> cases[] = {
        {"2", 2.0},          {"-3.25", -3.25},
        {"0", 0.0},          {"-0.5", -0.5},
        {"1e3", 1000.0},     {"1E+3", 1000.0},
        {"0.1", 0.1},        {"2.2250738585072014e-308", 2.2250738585072014e-308},
        {"1.25e-2", 0.0125}, {"-0.0", -0.0},
    };
    for (const auto &[text, value] : cases)
    {
        ASSERT_TRUE(form.read(header(members("1") + debug + text))) << text;
        EXPECT_EQ(form.items()[0].cca_value, value) << text;
        EXPECT_EQ(form.items()[0].data_valid, true);
        EXPECT_EQ(form.items()[0].cca_detected, false);
        EXPECT_EQ(form.items()[0].tx_enabled, true);
    }
    for (const auto *text : {"null", "01", "1.", ".5", "+1", "1e", "1e999", "-", "-0", "--1", "nan", "inf",
                             "0x1", "1.e3", "-01.5", "true", "", "1 2"})
    {
        EXPECT_FALSE(form.read(header(members("1") + debug + text))) << text;
    }
}

TEST(header_form, reads_times)
{
    const auto with_time = [](const std::string &moment, const std::string &bound) {
        return header(R"("utc_bound_s":)" + bound + "," + members("1") + R"(,"utc_s":)" + moment);
    };
    auto form = form_of(with_time("0", "0"));
    ASSERT_TRUE(form.read(with_time("1795455600.123457", "0.000211")));
    ASSERT_TRUE(form.items()[0].utc);
    EXPECT_EQ(form.items()[0].utc->moment,
              std::chrono::sys_time<std::chrono::microseconds>(1795455600123457us));
    EXPECT_EQ(form.items()[0].utc->bound, 211us);
    ASSERT_TRUE(form.read(with_time("-2.5e0", "3600")));
    EXPECT_EQ(form.items()[0].utc->moment, std::chrono::sys_time<std::chrono::milliseconds>(-2500ms));
    EXPECT_EQ(form.items()[0].utc->bound, 1h);
    for (const auto *moment : {"4600000000", "-4600000000", "1e300", "null", "\"1\"", "true"})
    {
        EXPECT_FALSE(form.read(with_time(moment, "0"))) << moment;
    }
    for (const auto *bound : {"4600000000", "-0.000001", "null", "[]"})
    {
        EXPECT_FALSE(form.read(with_time("0", bound))) << bound;
    }
    EXPECT_FALSE(form.read(header(members("1")))) << "without a time";
    EXPECT_FALSE(form_of(header(members("1"))).read(with_time("0", "0"))) << "learned without a time";
}

TEST(header_form, reads_how_many_frames_are_missing)
{
    const auto with_missing = [](const std::string &missing) {
        return header(members("1") + R"(,"missing":7)",
                      R"(,"status":"ok","missing":)" + missing + R"(,"payload_size":8})");
    };
    auto form = form_of(with_missing("3"));
    for (const auto *missing : {"0", "12", "4294967295"})
    {
        ASSERT_TRUE(form.read(with_missing(missing))) << missing;
        EXPECT_EQ(std::to_string(form.missing()), missing);
    }
    for (const auto *missing : {"-1", "4294967296", "1.0", "null", "[1]", "01"})
    {
        EXPECT_FALSE(form.read(with_missing(missing))) << missing;
    }
    form = form_of(header(members("1")));
    ASSERT_TRUE(form.read(header(members("2"))));
    EXPECT_EQ(form.missing(), 0U);
}

TEST(header_form, leaves_other_headers_to_the_parser)
{
    auto form = form_of(header(members("1")));
    const std::string others[] = {
        header(members("4294967296")),
        header(members("-1")),
        header(members("01")),
        header(members("1.0")),
        header(members("1e3")),
        header(members("")),
        header(members("+1")),
        header(members(" 1")),
        header(members("1", "32768")),
        header(members("1", "-32769")),
        header(members("1", "-0")),
        header(members("1", "007")),
        header(members("1", "27", "null")),
        header(members("1", "27", "TRUE")),
        header(members("1", "27", "falsey")),
        header(members("1") + R"(,"data_valid":true)"),
        header(members("1"), R"(,"status":"ok","payload_size":9})"),
        header(members("1"), R"(,"status":"error","payload_size":8})"),
        header(members("1")) + " ",
        " " + header(members("1")),
        header(members("1")) + std::string(1, '\0'),
        header(members("1")).substr(0, 40),
        "",
    };
    for (const auto &other : others)
    {
        EXPECT_FALSE(form.read(other)) << other;
    }
    EXPECT_TRUE(form.read(header(members("2")))) << "after others";
}

TEST(header_form, reads_nothing_before_it_has_learned_and_after_it_has_forgotten)
{
    header_form form;
    EXPECT_FALSE(form.read(""));
    EXPECT_FALSE(form.read(header(members("1"))));
    form = form_of(header(members("1")));
    EXPECT_TRUE(form.read(header(members("2"))));
    form.forget();
    EXPECT_FALSE(form.read(header(members("2"))));
}

TEST(header_form, learns_no_header_in_which_a_name_may_stand_for_two_members)
{
    const std::string ambiguous[] = {
        header(members("1") + R"(,"tick":2)"),
        header(members("1") + R"(,"tic\u006b":2)"),
        header(members("1"),
               R"(,"result_info":[[{)" + members("3") + R"(}]],"status":"ok","payload_size":8})"),
        header(members("1"),
               R"(,"result_inf\u006f":[[{)" + members("3") + R"(}]],"status":"ok","payload_size":8})"),
    };
    for (const auto &line : ambiguous)
    {
        EXPECT_FALSE(form_of(line).read(line)) << line;
    }
}

TEST(header_form, compares_unknown_members_as_they_are)
{
    const std::string unknown =
        R"("text":"}]{[,\"tick\":5\\","list":[[],{"tick":7,"e":{}},-1e5,null,[true]], "z" : "",)";
    const auto line =
        header(unknown + members("1"), R"(,"status":"ok","tick":9,"payload_size":8, "x":[1,{"y":[]}]} )");
    auto form = form_of(line);
    auto next = line;
    next.replace(next.find(R"("tick":1,)"), 9, R"("tick":23,)");
    ASSERT_TRUE(form.read(next));
    EXPECT_EQ(form.items()[0].tick, 23U);
    next.replace(next.find(R"("tick":9,)"), 9, R"("tick":8,)");
    EXPECT_FALSE(form.read(next));
}

/** Makes headers at random, the same every time. */
class header_maker
{
public:
    /** Chooses the form of the headers. */
    explicit header_maker(unsigned seed) : random_(seed)
    {
        for (size_t group = 0; group < 1 + pick(3); ++group)
        {
            groups_.push_back(1 + pick(3));
        }
        space_ = pick(4) == 0 ? " " : "";
        counts_missing_ = pick(3) == 0;
        for (const char *name : {"data_valid", "cca_value", "cca_detected", "tx_enabled", "unknown"})
        {
            if (pick(2) == 0)
            {
                names_.emplace_back(name);
            }
        }
        if (pick(2) == 0)
        {
            names_.insert(names_.end(), {"utc_s", "utc_bound_s"});
        }
        std::shuffle(names_.begin(), names_.end(), random_);
    }

    [[nodiscard]] const std::vector<size_t> &groups() const
    {
        return groups_;
    }

    /** A header of this form with other values. */
    std::string header()
    {
        std::string list;
        size_t items = 0;
        for (const auto count : groups_)
        {
            list += list.empty() ? "[" : ",[";
            for (size_t i = 0; i < count; ++i, ++items)
            {
                list += (i == 0 ? "" : ",") + item();
            }
            list += "]";
        }
        const auto missing =
            counts_missing_ ? R"("missing":)" + pick({"0", "1", "250", "4294967295"}) + "," : "";
        return "{" + missing + R"("result_info":[)" + list + R"(],"status":"ok",)" + space_ +
               R"("payload_size":)" + std::to_string(items * points * sizeof(sample)) + "}";
    }

    /** Damages a header, or replaces one of its values by another one. */
    std::string damaged(std::string line)
    {
        constexpr std::string_view characters = "0123456789-+.eE,:{}[]\"\\ntrufalse \t\r\0x\x80";
        const auto place = pick(line.size());
        switch (pick(5))
        {
        case 0:
            line[place] = characters[pick(characters.size())];
            break;
        case 1:
            line.insert(place, 1, characters[pick(characters.size())]);
            break;
        case 2:
            line.erase(place, 1 + pick(3));
            break;
        case 3:
            line.insert(place, line.substr(pick(line.size()), pick(20)));
            break;
        default:
            replace_value(line, place);
        }
        return line;
    }

private:
    /** A number below a bound. */
    size_t pick(size_t bound)
    {
        return std::uniform_int_distribution<size_t>(0, bound - 1)(random_);
    }

    /** One of several texts. */
    std::string pick(const std::vector<const char *> &texts)
    {
        return texts[pick(texts.size())];
    }

    /** A value of a member. */
    std::string value(const std::string &name)
    {
        if (name == "tick")
        {
            return pick(8) == 0 ? pick({"0", "4294967295", "7"}) : std::to_string(random_());
        }
        if (name == "temperature")
        {
            return std::to_string(static_cast<int>(pick(65536)) - 32768);
        }
        if (name == "cca_value")
        {
            return pick(4) == 0 ? pick({"0", "-0.25", "1e5", "12"})
                                : json(0.001 * static_cast<double>(random_())).dump();
        }
        if (name == "utc_s" || name == "utc_bound_s")
        {
            return pick(4) == 0 ? pick({"0", "4599999999.999998", "1e-7", "1800000000"})
                                : json(1e-6 * static_cast<double>(random_())).dump();
        }
        return name == "unknown" ? R"({"a":[1,"\"]"]})" : pick({"true", "false"});
    }

    /** An item of a header. */
    std::string item()
    {
        std::vector<std::string> names{"tick", "data_saturated", "temperature", "calibration_needed",
                                       "frame_delayed"};
        names.insert(names.end(), names_.begin(), names_.end());
        std::string text;
        for (const auto &name : names)
        {
            text += (text.empty() ? "{\"" : ",\"") + name + "\":" + space_ + value(name);
        }
        return text + "}";
    }

    /** Replaces what follows the next colon by a value that may be wrong. */
    void replace_value(std::string &line, size_t place)
    {
        const auto colon = line.find(':', place);
        const auto end = line.find_first_of(",}", colon);
        if (end != std::string::npos)
        {
            line.replace(colon + 1, end - colon - 1,
                         pick({"0",
                               "-0",
                               "-1",
                               "00",
                               "32767",
                               "32768",
                               "-32768",
                               "-32769",
                               "4294967295",
                               "4294967296",
                               "18446744073709551616",
                               "4600000000",
                               "-4599999999.5",
                               "1.5",
                               "-0.0",
                               "1e400",
                               "1e-400",
                               "5e-324",
                               "1e",
                               "1.",
                               ".5",
                               "null",
                               "true",
                               "false",
                               "truefalse",
                               "[]",
                               "\"x\"",
                               ""}));
        }
    }

    std::mt19937 random_;
    std::vector<size_t> groups_;
    std::vector<std::string> names_; /**< optional members */
    std::string space_;
    bool counts_missing_ = false;
};

/** How many headers are generated: VANTOR_CAMPAIGN_SIZE, or few. */
size_t number_of_headers()
{
    const char *size = std::getenv("VANTOR_CAMPAIGN_SIZE");
    return size == nullptr ? 6000 : std::strtoul(size, nullptr, 10);
}

TEST(header_form, agrees_with_the_parser_about_generated_headers)
{
    constexpr size_t headers_of_a_form = 60;
    size_t read = 0;
    size_t damaged = 0;
    for (size_t i = 0; i < number_of_headers(); i += headers_of_a_form)
    {
        header_maker maker(static_cast<unsigned>(i));
        const auto metadata = metadata_of(maker.groups());
        const auto first = maker.header();
        header_form form;
        const auto learned = parsed(first, metadata).value();
        form.learn(first, learned.items());
        for (size_t k = 0; k < headers_of_a_form; ++k)
        {
            const bool intact = k % 2 == 0;
            const auto line = intact ? maker.header() : maker.damaged(maker.header());
            const auto expected =
                line.find('\n') == std::string::npos ? parsed(line, metadata) : std::nullopt;
            const bool accepted = form.read(line);
            ASSERT_TRUE(accepted || !intact) << first << "\n" << line;
            ASSERT_TRUE(!accepted || (expected && is_read_as(*expected, form))) << first << "\n" << line;
            read += accepted ? 1 : 0;
            damaged += !intact && !accepted ? 1 : 0;
            if (!accepted && expected)
            {
                form.learn(line, expected->items());
                ASSERT_TRUE(!form.read(line) || is_read_as(*expected, form)) << line;
                form.learn(first, learned.items());
            }
        }
    }
    std::cout << read << " headers read in place, " << damaged << " left to the parser\n";
    EXPECT_GT(read, number_of_headers() / 2);
    EXPECT_GT(damaged, number_of_headers() / 4);
}

} // namespace
} // namespace vantor
