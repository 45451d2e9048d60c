/** @file
 * Checks a line from the host before the JSON parser sees it.
 */
#include "zet_json_scanner.h"

#include <cstring>

#include "zet_utf8.h"
#include "zet_vantor_server_utils.h"

namespace
{

/** What must come next in the text. */
enum expect_t : uint8_t
{
    EXPECT_VALUE,        /**< a value */
    EXPECT_VALUE_OR_END, /**< a value or the end of the array that was just opened */
    EXPECT_KEY,          /**< a member */
    EXPECT_KEY_OR_END,   /**< a member or the end of the object that was just opened */
    EXPECT_COMMA_OR_END, /**< after a value: a comma or the end of the object or array, if one is open */
};

/** State of the scanner. */
struct scan_t
{
    const char *at;       /**< next character */
    const char *end;      /**< end of the text */
    uint32_t values_left; /**< how many more values are allowed */
    uint32_t depth;       /**< number of open objects and arrays */
    uint32_t objects;     /**< one bit per open object or array, the innermost lowest: 1 for an object */
    expect_t expect;      /**< what must come next */
};
static_assert(zet_json_scan_max_depth <= 32, "scan_t::objects has one bit per level");

/** Returns whether the next character is the given one. */
bool is_next(const scan_t *scan, char character)
{
    return scan->at != scan->end && *scan->at == character;
}

/** Consumes the next character if it is the given one; returns whether it was. */
bool take(scan_t *scan, char character)
{
    const bool found = is_next(scan, character);
    scan->at += found ? 1 : 0;
    return found;
}

/** Skips white space. */
void skip_space(scan_t *scan)
{
    while (take(scan, ' ') || take(scan, '\t') || take(scan, '\r') || take(scan, '\n'))
    {
    }
}

/** Consumes decimal digits; returns how many. */
size_t take_digits(scan_t *scan)
{
    const char *first = scan->at;
    while (scan->at != scan->end && *scan->at >= '0' && *scan->at <= '9')
    {
        ++scan->at;
    }
    return static_cast<size_t>(scan->at - first);
}

/**
 * Returns whether a number or literal ends here. Without this check 007 would be a number followed by another
 * one; it is an ill-formed number.
 */
bool token_ends(const scan_t *scan)
{
    return scan->at == scan->end || *scan->at == '\0' || std::strchr(" \t\r\n,:{}[]\"", *scan->at) != nullptr;
}

/** Consumes a number. */
bool take_number(scan_t *scan)
{
    (void)take(scan, '-');
    if (!take(scan, '0') && take_digits(scan) == 0)
    {
        return false;
    }
    if (take(scan, '.') && take_digits(scan) == 0)
    {
        return false;
    }
    if (take(scan, 'e') || take(scan, 'E'))
    {
        if (!take(scan, '+'))
        {
            (void)take(scan, '-');
        }
        if (take_digits(scan) == 0)
        {
            return false;
        }
    }
    return token_ends(scan);
}

/** Consumes a literal: true, false or null. */
bool take_literal(scan_t *scan, const char *word)
{
    for (; *word != '\0'; ++word)
    {
        if (!take(scan, *word))
        {
            return false;
        }
    }
    return token_ends(scan);
}

/** Consumes the four digits of a \\u escape. */
bool take_code_unit(scan_t *scan, uint32_t *unit)
{
    char digits[5] = {};
    uint8_t bytes[2] = {};
    if (scan->end - scan->at < 4)
    {
        return false;
    }
    std::memcpy(digits, scan->at, 4);
    if (!convert_hexstr2uint(digits, bytes, sizeof bytes))
    {
        return false;
    }
    *unit = static_cast<uint32_t>(bytes[0]) << 8U | bytes[1];
    scan->at += 4;
    return true;
}

/** Consumes the rest of a \\u escape after the letter u; of a surrogate pair both halves. */
bool take_unicode_escape(scan_t *scan)
{
    uint32_t unit = 0;
    if (!take_code_unit(scan, &unit) || unit == 0)
    {
        return false;
    }
    if (unit < 0xD800U || unit > 0xDFFFU)
    {
        return true;
    }
    uint32_t low = 0;
    return unit < 0xDC00U && take(scan, '\\') && take(scan, 'u') && take_code_unit(scan, &low) &&
           low >= 0xDC00U && low <= 0xDFFFU;
}

/** Consumes the rest of an escape, after the backslash. */
bool take_escape(scan_t *scan)
{
    if (take(scan, 'u'))
    {
        return take_unicode_escape(scan);
    }
    if (scan->at == scan->end || *scan->at == '\0' || std::strchr("\"\\/bfnrt", *scan->at) == nullptr)
    {
        return false;
    }
    ++scan->at;
    return true;
}

/** Consumes a string with its quotation marks. */
bool take_string(scan_t *scan)
{
    if (!take(scan, '"'))
    {
        return false;
    }
    while (!take(scan, '"'))
    {
        if (take(scan, '\\'))
        {
            if (!take_escape(scan))
            {
                return false;
            }
            continue;
        }
        const size_t length = zet_utf8_sequence_length(scan->at, static_cast<size_t>(scan->end - scan->at));
        if (length == 0 || static_cast<unsigned char>(*scan->at) < 0x20U)
        {
            return false;
        }
        scan->at += length;
    }
    return true;
}

/** Enters an object or an array whose opening bracket was consumed. */
zet_json_scan_result_t enter(scan_t *scan, bool is_object)
{
    if (scan->depth == zet_json_scan_max_depth)
    {
        return ZET_JSON_SCAN_TOO_DEEP;
    }
    ++scan->depth;
    scan->objects = scan->objects << 1U | (is_object ? 1U : 0U);
    scan->expect = is_object ? EXPECT_KEY_OR_END : EXPECT_VALUE_OR_END;
    return ZET_JSON_SCAN_OK;
}

/** Leaves the innermost object or array; its closing bracket must be next. */
zet_json_scan_result_t leave(scan_t *scan)
{
    if (!take(scan, (scan->objects & 1U) != 0 ? '}' : ']'))
    {
        return ZET_JSON_SCAN_NOT_JSON;
    }
    --scan->depth;
    scan->objects >>= 1U;
    scan->expect = EXPECT_COMMA_OR_END;
    return ZET_JSON_SCAN_OK;
}

/** Consumes a string, a number or a literal. */
bool take_scalar(scan_t *scan)
{
    switch (*scan->at)
    {
    case '"':
        return take_string(scan);
    case 't':
        return take_literal(scan, "true");
    case 'f':
        return take_literal(scan, "false");
    case 'n':
        return take_literal(scan, "null");
    default:
        return take_number(scan);
    }
}

/** Consumes a value; of an object or an array only the opening bracket. */
zet_json_scan_result_t scan_value(scan_t *scan)
{
    if (scan->at == scan->end)
    {
        return ZET_JSON_SCAN_NOT_JSON;
    }
    if (scan->values_left == 0)
    {
        return ZET_JSON_SCAN_TOO_MANY_VALUES;
    }
    --scan->values_left;
    if (take(scan, '{'))
    {
        return enter(scan, true);
    }
    if (take(scan, '['))
    {
        return enter(scan, false);
    }
    if (!take_scalar(scan))
    {
        return ZET_JSON_SCAN_NOT_JSON;
    }
    scan->expect = EXPECT_COMMA_OR_END;
    return ZET_JSON_SCAN_OK;
}

/** Consumes the key of a member and the colon. */
zet_json_scan_result_t scan_key(scan_t *scan)
{
    if (!take_string(scan))
    {
        return ZET_JSON_SCAN_NOT_JSON;
    }
    skip_space(scan);
    scan->expect = EXPECT_VALUE;
    return take(scan, ':') ? ZET_JSON_SCAN_OK : ZET_JSON_SCAN_NOT_JSON;
}

/** Consumes the next token of the document: a value, a key, a bracket or a comma. */
zet_json_scan_result_t scan_next(scan_t *scan)
{
    switch (scan->expect)
    {
    case EXPECT_VALUE_OR_END:
        return is_next(scan, ']') ? leave(scan) : scan_value(scan);
    case EXPECT_KEY_OR_END:
        return is_next(scan, '}') ? leave(scan) : scan_key(scan);
    case EXPECT_KEY:
        return scan_key(scan);
    case EXPECT_COMMA_OR_END:
        if (!take(scan, ','))
        {
            return leave(scan);
        }
        scan->expect = (scan->objects & 1U) != 0 ? EXPECT_KEY : EXPECT_VALUE;
        return ZET_JSON_SCAN_OK;
    case EXPECT_VALUE:
        break;
    }
    return scan_value(scan);
}

} // namespace

zet_json_scan_result_t zet_json_scan(const char *text, size_t size, uint32_t max_values)
{
    scan_t scan = {text, text + size, max_values, 0, 0, EXPECT_VALUE};
    do
    {
        skip_space(&scan);
        const zet_json_scan_result_t result = scan_next(&scan);
        if (result != ZET_JSON_SCAN_OK)
        {
            return result;
        }
    } while (scan.depth > 0 || scan.expect != EXPECT_COMMA_OR_END);
    skip_space(&scan);
    return scan.at == scan.end ? ZET_JSON_SCAN_OK : ZET_JSON_SCAN_TRAILING_TEXT;
}
