/** @file
 * Checks scenes for people and programs.
 */
#include "scene_check.h"

#include <array>
#include <charconv>
#include <exception>
#include <string>
#include <vector>

#include <cjson/cJSON.h>

#include "console.h"
#include "scene_file.h"
#include "scene_notes.h"
#include "zet_simulator_scene_json.h"

namespace
{

/** What a scene contains. */
struct overview_t
{
    struct count_t
    {
        const char *name;
        uint32_t value;
    };

    std::vector<count_t> counts;
    bool ends;
    double end_s; /**< when the last thing happens, if it ends */
    std::vector<std::string> notes;
};

/** Describes a scene, with the targets of bodies. */
overview_t describe(const zet_simulator_scene_t &scene, uint32_t body_count)
{
    overview_t overview = {{{"targets", scene.target_count},
                            {"bodies", body_count},
                            {"sensors", scene.pose_count},
                            {"interferers", scene.interferer_count},
                            {"temperatures", scene.temperature_count},
                            {"faults", scene.fault_count},
                            {"hardware", scene.hardware_count}},
                           false,
                           0.0,
                           scene_notes(scene)};
    overview.ends = zet_simulator_scene_end(&scene, &overview.end_s);
    return overview;
}

/** Returns a time with as many digits as a scene stores. */
std::string time_text(double time_s)
{
    std::array<char, 32> digits{};
    const auto end =
        std::to_chars(digits.data(), digits.data() + digits.size(), static_cast<float>(time_s)).ptr;
    return {digits.data(), end};
}

/** Returns when the last thing happens, as a sentence. */
std::string end_text(const overview_t &overview)
{
    if (!overview.ends)
    {
        return "it changes without end";
    }
    return overview.end_s == 0.0 ? "nothing changes"
                                 : "the last change is at " + time_text(overview.end_s) + " s";
}

/** Prints an overview for people. */
void print_text(const overview_t &overview, const std::string &name)
{
    constexpr size_t name_width = 14;
    print_output(name + ": valid scene");
    for (const overview_t::count_t &count : overview.counts)
    {
        std::string line = std::string("  ") + count.name;
        line.resize(2 + name_width, ' ');
        print_output(line + std::to_string(count.value));
    }
    print_output("  " + end_text(overview));
    for (const std::string &note : overview.notes)
    {
        print_output("  note: " + note);
    }
}

/** Prints an overview, or what is wrong, as JSON. */
void print_json(const overview_t &overview, const std::string &fault)
{
    cJSON *document = cJSON_CreateObject();
    cJSON_AddBoolToObject(document, "valid", static_cast<cJSON_bool>(fault.empty()));
    if (!fault.empty())
    {
        cJSON_AddStringToObject(document, "fault", fault.c_str());
    }
    for (const overview_t::count_t &count : overview.counts)
    {
        cJSON_AddNumberToObject(document, count.name, count.value);
    }
    if (fault.empty() && overview.ends)
    {
        cJSON_AddRawToObject(document, "end_s", time_text(overview.end_s).c_str());
    }
    else if (fault.empty())
    {
        cJSON_AddNullToObject(document, "end_s");
    }
    cJSON *notes = fault.empty() ? cJSON_AddArrayToObject(document, "notes") : nullptr;
    for (const std::string &note : overview.notes)
    {
        cJSON_AddItemToArray(notes, cJSON_CreateString(note.c_str()));
    }
    char *text = cJSON_PrintUnformatted(document);
    print_output(text);
    cJSON_free(text);
    cJSON_Delete(document);
}

/** Reads the scene and describes it. */
overview_t read_overview(const options_t &options)
{
    if (options.scene_path.empty())
    {
        return describe(*zet_simulator_default_scene(), 0);
    }
    uint32_t body_count = 0;
    auto scene = read_scene_file(options.scene_path, options.sensor_count, &body_count);
    if (options.board != 0)
    {
        select_board(scene, options.board, options.scene_path);
    }
    return describe(scene, body_count);
}

} // namespace

bool check_scene(const options_t &options)
{
    try
    {
        const overview_t overview = read_overview(options);
        if (options.json)
        {
            print_json(overview, "");
        }
        else
        {
            print_text(overview, options.scene_path.empty() ? "built-in scene" : options.scene_path);
        }
        return true;
    }
    catch (const std::exception &error)
    {
        if (!options.json)
        {
            throw;
        }
        print_json({}, error.what());
        return false;
    }
}
