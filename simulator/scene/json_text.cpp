/** @file
 * JSON as text: whether it is JSON, and where its values are.
 */
#include "scene/json_text.h"

#include <cstdio>
#include <iterator>

namespace
{

using namespace zet_simulator;

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

/** Returns whether a byte continues a character in UTF-8. */
bool continues_character(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/** Characters in UTF-8 that begin with some bytes: their length, and the range of their second byte. */
struct utf8_rule
{
    unsigned char first;
    unsigned char last;
    unsigned char length;
    unsigned char second_least;
    unsigned char second_most;
};

/** Well-formed characters of more than one byte (Unicode, table 3-7). */
constexpr utf8_rule utf8_rules[] = {
    {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

/** Returns the length of the first character; 0 if it is not UTF-8. */
size_t character_length(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80U)
    {
        return 1;
    }
    for (const utf8_rule &rule : utf8_rules)
    {
        if (first < rule.first || first > rule.last || text.size() < rule.length)
        {
            continue;
        }
        const auto second = static_cast<unsigned char>(text[1]);
        bool is_complete = second >= rule.second_least && second <= rule.second_most;
        for (size_t i = 2; i < rule.length; ++i)
        {
            is_complete &= continues_character(text[i]);
        }
        return is_complete ? rule.length : 0;
    }
    return 0;
}

/** Returns whether a character is a decimal digit. */
bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

/** Returns the value of a hexadecimal digit; 16 if it is none. */
uint32_t hexadecimal_value(char character)
{
    const auto lower = static_cast<char>(static_cast<unsigned char>(character) | 0x20U);
    if (is_digit(character))
    {
        return static_cast<uint32_t>(character - '0');
    }
    return lower >= 'a' && lower <= 'f' ? static_cast<uint32_t>(lower - 'a') + 10U : 16U;
}

/** Scans a text. The functions return whether they have found what they are named after, and go behind it. */
class json_scanner
{
public:
    /** @param wanted  number of the value to find */
    json_scanner(std::string_view text, uint32_t wanted) : text_(text), wanted_(wanted)
    {
    }

    /** A complete text. */
    bool document()
    {
        at_ = text_.starts_with(byte_order_mark) ? byte_order_mark.size() : 0U;
        space();
        key_ = at_;
        if (!value(0))
        {
            return false;
        }
        space();
        return at_ == text_.size() || fail("the end of the text");
    }

    /** Where the wanted value is. */
    [[nodiscard]] const json_value_place &found() const
    {
        return found_;
    }

    /** What is wrong. */
    [[nodiscard]] const json_fault &fault() const
    {
        return fault_;
    }

private:
    /** The next character; a null byte at the end of the text. */
    [[nodiscard]] char next() const
    {
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    bool fail(const char *expected)
    {
        fault_ = {at_, expected};
        return false;
    }

    bool take(char character)
    {
        const bool is_there = next() == character;
        at_ += is_there ? 1U : 0U;
        return is_there;
    }

    void space()
    {
        while (next() == ' ' || next() == '\t' || next() == '\n' || next() == '\r')
        {
            ++at_;
        }
    }

    /** A value inside a number of objects and arrays. */
    bool value(uint32_t level)
    {
        if (count_ == json_most_values)
        {
            return fail("at most 200000 values");
        }
        if (count_++ == wanted_)
        {
            found_ = {key_, at_};
        }
        switch (next())
        {
        case '{':
        case '[':
            return level < json_most_levels ? list(level + 1U) : fail("at most 16 levels of nesting");
        case '"':
            return string();
        case 't':
            return word("true");
        case 'f':
            return word("false");
        case 'n':
            return word("null");
        default:
            return number();
        }
    }

    /** An object or an array. */
    bool list(uint32_t level)
    {
        const bool is_object = next() == '{';
        const char end = is_object ? '}' : ']';
        ++at_;
        space();
        if (take(end))
        {
            return true;
        }
        do
        {
            space();
            key_ = at_;
            if ((is_object && !key()) || !value(level))
            {
                return false;
            }
            space();
        } while (take(','));
        return take(end) || fail(is_object ? "\",\" or \"}\"" : "\",\" or \"]\"");
    }

    /** A key and what is between it and its value. */
    bool key()
    {
        const size_t start = at_;
        if (next() != '"')
        {
            return fail("a key in quotation marks");
        }
        if (!string())
        {
            return false;
        }
        space();
        if (!take(':'))
        {
            return fail("\":\" after the key");
        }
        space();
        key_ = start;
        return true;
    }

    bool word(std::string_view word)
    {
        if (text_.substr(at_, word.size()) != word)
        {
            return fail("a value");
        }
        at_ += word.size();
        return true;
    }

    bool digits()
    {
        if (!is_digit(next()))
        {
            return fail("a digit");
        }
        while (is_digit(next()))
        {
            ++at_;
        }
        return true;
    }

    bool number()
    {
        if (next() != '-' && !is_digit(next()))
        {
            return fail("a value");
        }
        take('-');
        if (!take('0') && !digits())
        {
            return false;
        }
        if (take('.') && !digits())
        {
            return false;
        }
        if (take('e') || take('E'))
        {
            static_cast<void>(take('+') || take('-'));
            return digits();
        }
        return true;
    }

    bool string()
    {
        ++at_;
        while (!take('"'))
        {
            if (at_ == text_.size())
            {
                return fail("the quotation mark at the end of a string");
            }
            if (static_cast<unsigned char>(next()) < 0x20U)
            {
                return fail("an escape such as \\n or \\u0009");
            }
            if (next() == '\\' ? !escape() : !character())
            {
                return false;
            }
        }
        return true;
    }

    bool character()
    {
        const size_t length = character_length(text_.substr(at_));
        at_ += length;
        return length > 0U || fail("a character in UTF-8");
    }

    /** A backslash and what it means. */
    bool escape()
    {
        const size_t start = at_++;
        if (next() != 'u')
        {
            const bool is_known =
                at_ < text_.size() && std::string_view("\"\\/bfnrt").find(next()) != std::string_view::npos;
            at_ = is_known ? at_ + 1U : start;
            return is_known || fail("an escape that JSON has, such as \\n or \\\\");
        }
        uint32_t unit = 0;
        if (!code_unit(unit) || unit == 0U)
        {
            at_ = start;
            return fail("\\u and four hexadecimal digits that are not all 0");
        }
        const bool is_high = unit >= 0xD800U && unit < 0xDC00U;
        uint32_t low = 0;
        const bool is_pair = is_high && take('\\') && next() == 'u' && code_unit(low);
        if ((is_high && !(is_pair && low >= 0xDC00U && low < 0xE000U)) || (unit >= 0xDC00U && unit < 0xE000U))
        {
            at_ = start;
            return fail("both halves of a pair of surrogates");
        }
        return true;
    }

    /** The letter u and four hexadecimal digits. */
    bool code_unit(uint32_t &unit)
    {
        ++at_;
        unit = 0;
        for (int i = 0; i < 4; ++i)
        {
            const uint32_t digit = hexadecimal_value(next());
            if (digit == 16U)
            {
                return false;
            }
            unit = unit * 16U + digit;
            ++at_;
        }
        return true;
    }

    std::string_view text_;
    uint32_t wanted_;
    size_t at_ = 0;
    size_t key_ = 0; /**< of the value that is next */
    uint32_t count_ = 0;
    json_value_place found_ = {};
    json_fault fault_ = {};
};

/** Adds text to an excerpt at a place; returns the place behind it. */
size_t put(text_excerpt &excerpt, size_t at, std::string_view text)
{
    return at + text.copy(excerpt.text + at, std::size(excerpt.text) - 1U - at);
}

} // namespace

namespace zet_simulator
{

bool json_text_is_valid(std::string_view text, json_fault &fault)
{
    json_scanner scanner(text, json_most_values);
    const bool valid = scanner.document();
    fault = scanner.fault();
    return valid;
}

json_value_place json_text_find(std::string_view text, uint32_t number)
{
    json_scanner scanner(text, number);
    static_cast<void>(scanner.document());
    return scanner.found();
}

void append_position(const message &message, std::string_view text, size_t at)
{
    unsigned long line = 1;
    unsigned long column = 1;
    for (size_t i = text.starts_with(byte_order_mark) ? byte_order_mark.size() : 0U; i < at; ++i)
    {
        if (text[i] == '\n')
        {
            ++line;
            column = 1;
        }
        else if (!continues_character(text[i]))
        {
            ++column;
        }
    }
    append(message, " (line %lu, column %lu)", line, column);
}

text_excerpt text_excerpt_at(std::string_view text, size_t at)
{
    text_excerpt excerpt = {};
    if (at >= text.size())
    {
        put(excerpt, 0, "the end of the text");
        return excerpt;
    }
    const auto byte = static_cast<unsigned char>(text[at]);
    const size_t length = character_length(text.substr(at));
    if (byte == '\n' || byte == '\r')
    {
        put(excerpt, 0, "the end of a line");
    }
    else if (length == 0U || byte < 0x20U || byte == 0x7FU)
    {
        static_cast<void>(std::snprintf(excerpt.text, std::size(excerpt.text), "the byte 0x%02x",
                                        static_cast<unsigned>(byte)));
    }
    else
    {
        return text_quoted(text.substr(at, length));
    }
    return excerpt;
}

text_excerpt text_quoted(std::string_view text)
{
    constexpr size_t most_bytes = 32;
    text_excerpt excerpt = {};
    size_t end = put(excerpt, 0, "\"");
    size_t from = 0;
    while (from < text.size())
    {
        const size_t length = character_length(text.substr(from));
        const auto byte = static_cast<unsigned char>(text[from]);
        if (from + length > most_bytes)
        {
            break;
        }
        const bool is_printable = length > 0U && byte >= 0x20U && byte != 0x7FU;
        end = put(excerpt, end, is_printable ? text.substr(from, length) : "?");
        from += length > 0U ? length : 1U;
    }
    end = put(excerpt, end, from < text.size() ? "..." : "");
    put(excerpt, end, "\"");
    return excerpt;
}

} // namespace zet_simulator
