/** @file
 * Finds the word that was probably meant.
 */
#include "configuration/check/nearest_word.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <string_view>

namespace vantor
{
namespace
{

/** Number of single-letter changes between two texts (Levenshtein distance). */
size_t edit_distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i)
    {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j)
        {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

/** The word closest to a text; null if none is close. */
nlohmann::ordered_json closest_word(const std::string &text, const std::vector<std::string> &words)
{
    nlohmann::ordered_json best;
    size_t best_distance = text.size() / 2 + 2;
    for (const auto &word : words)
    {
        // A much longer text can be very long.
        const bool too_long = text.size() >= word.size() + best_distance;
        if (const auto distance = too_long ? best_distance : edit_distance(text, word);
            distance < best_distance)
        {
            best = word;
            best_distance = distance;
        }
    }
    return best;
}

/** The number at the beginning of a word such as "19_5_MHz"; nothing if it has none. */
std::optional<double> leading_number(std::string word)
{
    std::replace(word.begin(), word.end(), '_', '.');
    double number = 0.0;
    const auto [stop, failure] = std::from_chars(word.data(), word.data() + word.size(), number);
    return failure == std::errc() && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

/** The word with the closest number; null if the text or one of the words has none. */
nlohmann::ordered_json closest_quantity(const std::string &text, const std::vector<std::string> &words)
{
    const auto wanted = leading_number(text);
    nlohmann::ordered_json best;
    double best_distance = std::numeric_limits<double>::infinity();
    for (const auto &word : words)
    {
        const auto number = leading_number(word);
        if (!wanted || !number)
        {
            return nullptr;
        }
        if (const double distance = std::fabs(*number - *wanted); distance < best_distance)
        {
            best = word;
            best_distance = distance;
        }
    }
    return best;
}

/** The only word that begins with a text; null if there are none or several. */
nlohmann::ordered_json completed_word(const std::string &text, const std::vector<std::string> &words)
{
    const auto begins = [&text](const std::string &word) { return word.starts_with(text); };
    const auto first = std::find_if(words.begin(), words.end(), begins);
    const bool unique = first != words.end() && std::none_of(first + 1, words.end(), begins);
    return unique ? nlohmann::ordered_json(*first) : nlohmann::ordered_json();
}

} // namespace

nlohmann::ordered_json nearest_word(const std::string &text, const std::vector<std::string> &words)
{
    auto word = closest_quantity(text, words);
    word = word.is_null() ? completed_word(text, words) : word;
    return word.is_null() ? closest_word(text, words) : word;
}

} // namespace vantor
