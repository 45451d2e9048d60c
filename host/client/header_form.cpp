/** @file
 * Reads frame headers that have the form of an earlier one, without building a JSON document.
 */
#include "client/header_form.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <set>
#include <utility>

#include "client/utc_members.h"

namespace vantor
{
namespace
{

/** The names of the members of an item whose values are read in place. */
constexpr std::array<std::pair<std::string_view, header_member>, 11> item_members{{
    {"tick", header_member::tick},
    {"temperature", header_member::temperature},
    {"data_saturated", header_member::data_saturated},
    {"calibration_needed", header_member::calibration_needed},
    {"frame_delayed", header_member::frame_delayed},
    {"data_valid", header_member::data_valid},
    {"cca_value", header_member::cca_value},
    {"cca_detected", header_member::cca_detected},
    {"tx_enabled", header_member::tx_enabled},
    {"utc_s", header_member::utc_s},
    {"utc_bound_s", header_member::utc_bound_s},
}};

/** Walks through a JSON text that is known to be valid. */
class json_walk
{
public:
    explicit json_walk(std::string_view text) noexcept : text_(text)
    {
    }

    /** The next character that is not white space; 0 at the end. */
    char peek() noexcept
    {
        at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    /** Walks through an object; @p visit gets each key as it is written and walks through its value. */
    template <typename visit_t> void walk_members(visit_t visit)
    {
        ++at_;
        if (take('}'))
        {
            return;
        }
        do
        {
            const auto key = walk_string();
            take(':');
            visit(key);
        } while (take(','));
        take('}');
    }

    /** Walks through an array; @p visit walks through each element. */
    template <typename visit_t> void walk_elements(visit_t visit)
    {
        ++at_;
        if (take(']'))
        {
            return;
        }
        do
        {
            visit();
        } while (take(','));
        take(']');
    }

    /** Walks through a number or a word, and returns where it begins and how long it is. */
    std::pair<size_t, size_t> walk_scalar() noexcept
    {
        peek();
        const auto begin = at_;
        at_ = std::min(text_.find_first_of(",]} \t\r\n", begin), text_.size());
        return {begin, at_ - begin};
    }

    /** Walks through any value. */
    void walk_value()
    {
        switch (peek())
        {
        case '{':
            walk_members([this](std::string_view /*key*/) { walk_value(); });
            break;
        case '[':
            walk_elements([this] { walk_value(); });
            break;
        case '"':
            walk_string();
            break;
        default:
            walk_scalar();
        }
    }

private:
    /** Walks over a character if it is the next one. */
    bool take(char expected) noexcept
    {
        const bool found = peek() == expected;
        at_ += found ? 1U : 0U;
        return found;
    }

    /** Walks through a string, and returns what is between its quotation marks. */
    std::string_view walk_string() noexcept
    {
        peek();
        const auto begin = std::min(at_ + 1, text_.size());
        for (at_ = begin; at_ < text_.size() && text_[at_] != '"'; ++at_)
        {
            at_ += text_[at_] == '\\' ? 1U : 0U;
        }
        const auto end = std::min(at_, text_.size());
        at_ = std::min(at_ + 1, text_.size());
        return text_.substr(begin, end - begin);
    }

    std::string_view text_;
    size_t at_ = 0;
};

/** Where the value of a member is in a header. */
struct value_place
{
    size_t begin = 0;
    size_t length = 0;
    size_t item = 0;
    header_member member = header_member::tick;
};

/** Finds the values in a frame header that can be read in place. */
class value_search
{
public:
    explicit value_search(std::string_view header) : walk_(header)
    {
    }

    /**
     * Finds the values, in the order of the header.
     *
     * @param items  number of items
     * @return nothing if the header has another number of items, or a name may stand for two members
     */
    std::optional<std::vector<value_place>> run(size_t items)
    {
        if (walk_.peek() == '{')
        {
            walk_object([this](std::string_view key) { walk_header_member(key); });
        }
        return unique_ && item_ == items ? std::optional(std::move(places_)) : std::nullopt;
    }

private:
    /** Walks through an object, and checks that its names differ. They are compared as they are written. */
    template <typename visit_t> void walk_object(visit_t visit)
    {
        std::set<std::string_view> keys;
        walk_.walk_members([&](std::string_view key) {
            unique_ = unique_ && key.find('\\') == std::string_view::npos && keys.insert(key).second;
            visit(key);
        });
    }

    /** Walks through a member of the header; the items are in one of them. */
    void walk_header_member(std::string_view key)
    {
        if (key == "missing")
        {
            walk_to_value(header_member::missing);
            return;
        }
        if (key != "result_info")
        {
            walk_.walk_value();
            return;
        }
        walk_.walk_elements([this] {
            walk_.walk_elements([this] {
                walk_object([this](std::string_view name) { walk_item_member(name); });
                ++item_;
            });
        });
    }

    /** Walks through a member of an item. */
    void walk_item_member(std::string_view key)
    {
        const auto *const known = std::find_if(item_members.begin(), item_members.end(),
                                               [key](const auto &entry) { return entry.first == key; });
        // The value of an unknown member can be of any kind. Null stays as it is.
        if (known == item_members.end() || walk_.peek() == 'n')
        {
            walk_.walk_value();
            return;
        }
        walk_to_value(known->second);
    }

    /** Walks through the value of a member that is read in place. */
    void walk_to_value(header_member member)
    {
        const auto [begin, length] = walk_.walk_scalar();
        places_.push_back({.begin = begin, .length = length, .item = item_, .member = member});
    }

    json_walk walk_;
    size_t item_ = 0;
    bool unique_ = true;
    std::vector<value_place> places_;
};

/** Whether a whole number begins with a zero that JSON does not allow. */
bool has_leading_zero(std::string_view number)
{
    number.remove_prefix(number.starts_with('-') ? 1 : 0);
    return number.starts_with('0') && number.size() > 1;
}

/** A whole number that a JSON document contains as 0, without its sign. */
constexpr std::string_view negative_zero = "-0";

/** Reads a whole number from the front of a text; false if it is not one, is out of range or is -0. */
template <typename integer_t> bool read_integer(std::string_view &text, integer_t &value)
{
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    const auto number = text.substr(0, static_cast<size_t>(end - text.data()));
    const bool valid = failure == std::errc() && !has_leading_zero(number) && number != negative_zero;
    text.remove_prefix(valid ? number.size() : 0);
    return valid;
}

/** Reads a number from the front of a text; false if JSON does not allow it, or it is out of range or -0. */
bool read_number(std::string_view &text, std::optional<double> &value)
{
    const auto number = text.substr(0, std::min(text.find_first_not_of("+-.0123456789eE"), text.size()));
    const auto whole = number.substr(0, std::min(number.find_first_of(".eE"), number.size()));
    const auto is_digit = [number](size_t place) {
        return place < number.size() && number[place] >= '0' && number[place] <= '9';
    };
    const bool is_json =
        is_digit(number.starts_with('-') ? 1 : 0) && !has_leading_zero(whole) && number != negative_zero &&
        (whole.size() == number.size() || number[whole.size()] != '.' || is_digit(whole.size() + 1));
    double result = 0.0;
    const auto [end, failure] = std::from_chars(number.data(), number.data() + number.size(), result);
    if (!is_json || failure != std::errc() || end != number.data() + number.size())
    {
        return false;
    }
    value = result;
    text.remove_prefix(number.size());
    return true;
}

/** Reads a Boolean from the front of a text; false if it is none. */
template <typename bool_t> bool read_boolean(std::string_view &text, bool_t &value)
{
    constexpr std::string_view yes = "true";
    constexpr std::string_view no = "false";
    const bool is_true = text.starts_with(yes);
    if (!is_true && !text.starts_with(no))
    {
        return false;
    }
    value = is_true;
    text.remove_prefix((is_true ? yes : no).size());
    return true;
}

/** Reads a part of the time of an item from the front of a text; false if it is not a number or out of range.
 */
bool read_time(std::string_view &text, bool (*set)(utc_time &, double), frame_item &item)
{
    std::optional<double> seconds;
    auto &utc = item.utc ? *item.utc : item.utc.emplace();
    return read_number(text, seconds) && set(utc, *seconds);
}

/** Reads the value of a member of an item from the front of a text; false if it has another type or is out of
 * range. */
bool read_member(std::string_view &text, header_member which, frame_item &item)
{
    int16_t temperature = 0;
    switch (which)
    {
    case header_member::tick:
        return read_integer(text, item.tick);
    case header_member::temperature:
        if (!read_integer(text, temperature))
        {
            return false;
        }
        item.temperature = temperature;
        return true;
    case header_member::data_saturated:
        return read_boolean(text, item.data_saturated);
    case header_member::calibration_needed:
        return read_boolean(text, item.calibration_needed);
    case header_member::frame_delayed:
        return read_boolean(text, item.frame_delayed);
    case header_member::data_valid:
        return read_boolean(text, item.data_valid);
    case header_member::cca_value:
        return read_number(text, item.cca_value);
    case header_member::cca_detected:
        return read_boolean(text, item.cca_detected);
    case header_member::tx_enabled:
        return read_boolean(text, item.tx_enabled);
    case header_member::utc_s:
        return read_time(text, set_moment, item);
    case header_member::utc_bound_s:
        return read_time(text, set_bound, item);
    case header_member::missing:
        break;
    }
    return false;
}

} // namespace

void header_form::learn(std::string_view header, std::span<const frame_item> items)
{
    known_ = false;
    const auto places = value_search(header).run(items.size());
    if (!places)
    {
        return;
    }
    texts_.clear();
    fields_.clear();
    size_t end = 0;
    for (const auto &place : *places)
    {
        texts_ += header.substr(end, place.begin - end);
        fields_.push_back({.text = place.begin - end, .item = place.item, .member = place.member});
        end = place.begin + place.length;
    }
    texts_ += header.substr(end);
    items_.assign(items.begin(), items.end());
    for (auto &item : items_)
    {
        item.samples = {};
    }
    missing_ = 0;
    known_ = true;
}

bool header_form::read(std::string_view header)
{
    std::string_view texts = texts_;
    if (!known_)
    {
        return false;
    }
    for (const auto &next : fields_)
    {
        if (!header.starts_with(texts.substr(0, next.text)))
        {
            return false;
        }
        header.remove_prefix(next.text);
        texts.remove_prefix(next.text);
        const bool is_valid = next.member == header_member::missing
                                  ? read_integer(header, missing_)
                                  : read_member(header, next.member, items_[next.item]);
        if (!is_valid)
        {
            return false;
        }
    }
    return header == texts;
}

} // namespace vantor
