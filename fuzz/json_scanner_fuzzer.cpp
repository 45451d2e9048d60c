/** @file
 * Fuzzing of the JSON scanner: the JSON parser must parse every accepted text to its end, within the limits.
 */
#include "zet_json_scanner.h"

#include <cstdlib>
#include <string>

#include <cjson/cJSON.h>

namespace
{

constexpr uint32_t max_values = 64;

/** Counts the values of a document and determines its depth. */
uint32_t count_values(const cJSON *item, uint32_t depth, uint32_t *deepest)
{
    const bool nests = cJSON_IsArray(item) || cJSON_IsObject(item);
    const uint32_t here = nests ? depth + 1 : depth;
    *deepest = here > *deepest ? here : *deepest;
    uint32_t count = 1;
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, item)
    {
        count += count_values(child, here, deepest);
    }
    return count;
}

/** Aborts if a check fails. */
void check(bool passed)
{
    if (!passed)
    {
        std::abort();
    }
}

/** Compares the result for an accepted document with the parser. */
void check_accepted(const std::string &text)
{
    const char *end = nullptr;
    cJSON *document = cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, &end, 1);
    check(document != nullptr);
    check(end == text.c_str() + text.size());
    uint32_t deepest = 0;
    check(count_values(document, 0, &deepest) <= max_values);
    check(deepest <= zet_json_scan_max_depth);
    cJSON_Delete(document);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const zet_json_scan_result_t result = zet_json_scan(text.data(), text.size(), max_values);
    check(result <= ZET_JSON_SCAN_TOO_MANY_VALUES);
    if (result == ZET_JSON_SCAN_OK)
    {
        check_accepted(text);
        // White space around a document is allowed, text after it is not.
        const std::string spaced = " \t" + text + " \r";
        check(zet_json_scan(spaced.data(), spaced.size(), max_values) == ZET_JSON_SCAN_OK);
        const std::string followed = text + " {}";
        check(zet_json_scan(followed.data(), followed.size(), max_values) == ZET_JSON_SCAN_TRAILING_TEXT);
    }
    return 0;
}
