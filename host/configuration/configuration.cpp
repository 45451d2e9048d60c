/** @file
 * Reads configuration documents and lists their items.
 */
#include "vantor/configuration.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <set>
#include <system_error>

namespace vantor
{
namespace
{

/** Largest document that is read, far more than a server accepts. */
constexpr size_t largest_document = size_t{1} << 20;

/** Deepest nesting of a document, far more than a server accepts. */
constexpr int deepest_nesting = 64;

/** Most values in a document, which need much more memory than their text: more than recordings need. */
constexpr size_t most_values = 200'000;

/** Reads a text from a file or a pipe; nothing if it cannot be read. */
std::optional<std::string> read_text(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
    {
        return std::nullopt;
    }
    std::string text;
    std::array<char, 65536> part{};
    while (stream && text.size() <= largest_document)
    {
        stream.read(part.data(), part.size());
        text.append(part.data(), static_cast<size_t>(stream.gcount()));
    }
    return text;
}

/** Formats a position in a text as "line L, column C", both from 1. */
std::string describe_place(std::string_view text, size_t offset)
{
    const auto before = text.substr(0, offset);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const auto line_start = before.rfind('\n');
    const auto column = before.size() - (line_start == std::string_view::npos ? 0 : line_start + 1) + 1;
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

/** Describes the character at which a text is not JSON. */
std::string describe_unexpected(std::string_view text, size_t offset)
{
    if (offset >= text.size())
    {
        return "the text ends too early";
    }
    const auto first = static_cast<unsigned char>(text[offset]);
    if (first == '\n')
    {
        return "a line ends within a string";
    }
    const bool is_printable = first > 0x1F && first < 0x7F;
    return is_printable ? "unexpected \"" + std::string(1, text[offset]) + "\""
                        : "invalid or unexpected character";
}

/**
 * Checks a text before it becomes a document: its depth, its number of values, and that no object contains a
 * member twice. This is a separate pass, because the time of checks within the parser of documents
 * grows with the square of the length of a list.
 */
class text_check : public nlohmann::json_sax<nlohmann::json>
{
public:
    /** @param text  to check; @param name  its name in messages */
    text_check(std::string_view text, const std::string &name) : text_(text), name_(name)
    {
    }

    bool null() override
    {
        return count_value();
    }

    bool boolean(bool /*value*/) override
    {
        return count_value();
    }

    bool number_integer(number_integer_t /*value*/) override
    {
        return count_value();
    }

    bool number_unsigned(number_unsigned_t /*value*/) override
    {
        return count_value();
    }

    bool number_float(number_float_t /*value*/, const string_t & /*text*/) override
    {
        return count_value();
    }

    bool string(string_t & /*value*/) override
    {
        return count_value();
    }

    bool binary(binary_t & /*value*/) override
    {
        return count_value();
    }

    bool start_object(size_t /*size*/) override
    {
        count_value();
        ++depth_;
        seen_.emplace_back();
        return true;
    }

    bool key(string_t &name) override
    {
        if (!seen_.back().insert(name).second)
        {
            repeated_ = name;
        }
        return true;
    }

    bool end_object() override
    {
        --depth_;
        seen_.pop_back();
        return true;
    }

    bool start_array(size_t /*size*/) override
    {
        count_value();
        ++depth_;
        return true;
    }

    bool end_array() override
    {
        --depth_;
        return true;
    }

    bool parse_error(size_t position, const std::string & /*token*/,
                     const nlohmann::json::exception &failure) override
    {
        if (dynamic_cast<const nlohmann::json::parse_error *>(&failure) == nullptr)
        {
            throw configuration_error(name_ + " contains a number that is too large.");
        }
        const size_t offset = position == 0 ? 0 : position - 1;
        throw configuration_error(name_ + " is not valid JSON at " + describe_place(text_, offset) + ": " +
                                  describe_unexpected(text_, offset) + ".");
    }

    /** The last repeated member; empty if there is none. */
    [[nodiscard]] const std::string &repeated() const noexcept
    {
        return repeated_;
    }

private:
    /** Counts a value that begins; throws if it is too deep or one too many. */
    bool count_value()
    {
        if (depth_ > deepest_nesting)
        {
            throw configuration_error(name_ + " nests objects and lists more than " +
                                      std::to_string(deepest_nesting) + " levels deep.");
        }
        if (++values_ > most_values)
        {
            throw configuration_error(name_ + " is too large: it has more than " +
                                      std::to_string(most_values) + " values.");
        }
        return true;
    }

    std::string_view text_;
    const std::string &name_;
    std::vector<std::set<std::string>> seen_;
    std::string repeated_;
    size_t values_ = 0;
    int depth_ = 0;
};

/** Returns a member as a number, or the default if it is missing or not a number. */
double number_or(const nlohmann::json &object, const char *name, double otherwise)
{
    const auto found = object.find(name);
    return found != object.end() && found->is_number() ? found->get<double>() : otherwise;
}

/** Returns a member as a whole number like the server does: limited to the range of the type. */
int integer_or(const nlohmann::json &object, const char *name, int otherwise)
{
    return static_cast<int>(std::clamp<double>(number_or(object, name, otherwise),
                                               std::numeric_limits<int>::min(),
                                               std::numeric_limits<int>::max()));
}

/** Reads the position of a sub-sweep. */
subsweep_range read_range(const nlohmann::json &subsweep)
{
    subsweep_range range;
    range.num_points = integer_or(subsweep, "num_points", range.num_points);
    range.start_point = integer_or(subsweep, "start_point", range.start_point);
    // The server uses 16 bits of this one, and 8 bits of the next.
    range.step_length = static_cast<uint16_t>(integer_or(subsweep, "step_length", range.step_length));
    range.profile = static_cast<uint8_t>(integer_or(subsweep, "profile", range.profile));
    return range;
}

/** Throws configuration_error if a value does not have the type that it must have. */
void require_type(bool has_type, const nlohmann::json::json_pointer &place, const std::string &type)
{
    if (!has_type)
    {
        throw configuration_error("The configuration cannot be used: " + place.to_string() + " must be " +
                                  type + ".");
    }
}

/** Reads one item. */
item_configuration read_item(const nlohmann::json &document, const nlohmann::json::json_pointer &place)
{
    item_configuration item;
    item.document = document;
    item.sensor_id = static_cast<unsigned>(integer_or(document, "sensor_id", 0));
    require_type(document.is_object(), place, "an object");
    const auto config = document.value("config", nlohmann::json());
    require_type(config.is_object(), place / "config", "an object");
    item.frame_rate = number_or(config, "frame_rate", 0.0);
    item.sweep_rate = number_or(config, "sweep_rate", 0.0);
    if (!config.contains("subsweeps"))
    {
        item.subsweeps.push_back(read_range(config));
        return item;
    }
    const auto &subsweeps = config["subsweeps"];
    const auto list = place / "config" / "subsweeps";
    require_type(subsweeps.is_array(), list, "a list");
    for (size_t i = 0; i < subsweeps.size(); ++i)
    {
        require_type(subsweeps[i].is_object(), list / i, "an object");
        item.subsweeps.push_back(read_range(subsweeps[i]));
    }
    return item;
}

} // namespace

nlohmann::json parse_json_text(std::string_view text, const std::string &name)
{
    if (const auto end = text.find('\0'); end != std::string_view::npos)
    {
        // The parser would stop there.
        throw configuration_error(name + " is not valid JSON at " + describe_place(text, end) +
                                  ": it contains a null byte.");
    }
    text_check check(text, name);
    nlohmann::json::sax_parse(text, &check);
    if (!check.repeated().empty())
    {
        throw configuration_error(name + ": an object contains the member \"" + check.repeated() +
                                  "\" twice; remove one of them.");
    }
    return nlohmann::json::parse(text);
}

nlohmann::json load_configuration(const std::filesystem::path &file)
{
    std::error_code failure;
    if (std::filesystem::is_directory(file, failure))
    {
        throw configuration_error("Cannot read " + file.string() + ": it is a directory; use a file.");
    }
    const auto text = read_text(file);
    if (!text)
    {
        throw configuration_error("Cannot read " + file.string() +
                                  ": check that the file exists and that you have permission to read it.");
    }
    if (text->size() > largest_document)
    {
        throw configuration_error(file.string() + " is too large: it has more than 1 MiB.");
    }
    auto document = parse_json_text(*text, file.string());
    if (!document.is_object())
    {
        throw configuration_error(file.string() + " must contain one JSON object, { … }.");
    }
    return document;
}

std::vector<item_configuration> list_items(const nlohmann::json &configuration)
try
{
    std::vector<item_configuration> items;
    const auto groups = configuration.find("groups");
    if (groups == configuration.end())
    {
        return items;
    }
    const auto place = "/groups"_json_pointer;
    require_type(groups->is_array(), place, "a list");
    size_t group_index = 0;
    for (const auto &group : *groups)
    {
        require_type(group.is_array(), place / group_index, "a list");
        size_t index = 0;
        for (const auto &item : group)
        {
            items.push_back(read_item(item, place / group_index / index));
            ++index;
        }
        ++group_index;
    }
    return items;
}
catch (const nlohmann::json::exception &)
{
    throw configuration_error("The configuration has an item that is not an object with a \"config\".");
}

double sensor_frame_rate(const nlohmann::json &configuration)
{
    double lowest = 0.0;
    for (const auto &item : list_items(configuration))
    {
        const double rate = static_cast<float>(item.frame_rate);
        if (rate > 0.0 && (lowest == 0.0 || rate < lowest))
        {
            lowest = rate;
        }
    }
    return lowest;
}

double paced_frame_rate(const nlohmann::json &configuration)
{
    const char *const name = configuration.contains("max_update_rate") ? "max_update_rate" : "update_rate";
    return std::max(0.0, number_or(configuration, name, 0.0));
}

} // namespace vantor
