/** @file
 * Generates scenes, and plants faults in them, for tests.
 */
#ifndef SCENE_MAKER_H
#define SCENE_MAKER_H

#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

/** Members and indices from the document to a value. */
using document_path = std::vector<std::variant<std::string, size_t>>;

/** A scene with a fault. */
struct planted_fault
{
    std::string kind;
    std::string text;                  /**< the scene as JSON, or what is left of it */
    std::vector<std::string> expected; /**< what the message about it contains */
    bool schema_knows = true;          /**< a schema can say that it is wrong */
};

/** Generates scenes for a board with 5 sensors; the same seed gives the same scenes. */
class scene_maker
{
public:
    explicit scene_maker(unsigned seed);

    /** A valid scene with some of everything. */
    nlohmann::ordered_json scene();

    /** Plants a fault in a valid scene with at least one entry in each list. */
    planted_fault plant(const nlohmann::ordered_json &scene);

private:
    using json = nlohmann::ordered_json;
    using maker = json (scene_maker::*)();

    bool chance(int times);
    size_t below(size_t count);
    double number(double lowest, double highest);
    json value_of(const json &schema);
    json entry(const std::string &name, const std::vector<std::string> &keys);
    json some(maker make, size_t least, size_t most);
    json target();
    json keyframe_list(bool in_space);
    json oscillation_list(bool in_space);
    json body();
    json sensor();
    json interferer();
    json temperature();
    json fault();
    json hardware();

    document_path scalar_in(const json &scene, bool only_numbers);
    planted_fault wrong_type(json scene);
    planted_fault out_of_range(json scene);
    planted_fault missing_key(json scene);
    planted_fault unknown_key(json scene);
    planted_fault repeated_key(json scene);
    planted_fault text_that_is_not_json(json scene);
    planted_fault truncated(json scene);
    planted_fault wrong_utf_8(json scene);
    planted_fault deep_nesting(json scene);
    planted_fault swapped_bounds(json scene);
    planted_fault long_string(json scene);
    planted_fault long_list(json scene);
    planted_fault sensor_beyond_the_board(json scene);
    planted_fault conflict(json scene);
    planted_fault wrong_list(json scene);

    std::mt19937 random_;
    const json &schema_;
};

#endif
