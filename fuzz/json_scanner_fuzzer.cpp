/** @file
 * Fuzzing of the JSON scanner: whatever it accepts, the JSON parser parses to the end, within the bounds.
 */
#include "zet_json_scanner.h"

#include <cstdlib>
#include <string>

#include <cjson/cJSON.h>

namespace
{

constexpr uint32_t max_values = 64;

/** Counts the values of a document and finds how deep it nests. */
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

/** Ends the run when something does not hold. */
void demand(bool holds)
{
    if (!holds)
    {
        std::abort();
    }
}

/** Holds an accepted document against the parser. */
void check_accepted(const std::string &text)
{
    const char *end = nullptr;
    cJSON *document = cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, &end, 1);
    demand(document != nullptr);
    demand(end == text.c_str() + text.size());
    uint32_t deepest = 0;
    demand(count_values(document, 0, &deepest) <= max_values);
    demand(deepest <= zet_json_scan_max_depth);
    cJSON_Delete(document);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const zet_json_scan_result_t result = zet_json_scan(text.data(), text.size(), max_values);
    demand(result <= ZET_JSON_SCAN_TOO_MANY_VALUES);
    if (result == ZET_JSON_SCAN_OK)
    {
        check_accepted(text);
        // White space around a document changes nothing, text after it does.
        const std::string spaced = " \t" + text + " \r";
        demand(zet_json_scan(spaced.data(), spaced.size(), max_values) == ZET_JSON_SCAN_OK);
        const std::string followed = text + " {}";
        demand(zet_json_scan(followed.data(), followed.size(), max_values) == ZET_JSON_SCAN_TRAILING_TEXT);
    }
    return 0;
}
