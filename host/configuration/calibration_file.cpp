/** @file
 * Calibration files.
 */
#include "configuration/calibration_file.h"

#include <set>

#include "configuration/check/configuration_check.h"
#include "configuration/configuration.h"

namespace vantor
{

std::string calibration_text(const std::vector<calibration> &calibrations)
{
    auto list = nlohmann::ordered_json::array();
    for (const auto &entry : calibrations)
    {
        list.push_back(
            {{"sensor_id", entry.sensor_id}, {"temperature", entry.temperature}, {"data", entry.data}});
    }
    return nlohmann::ordered_json{{"calibration_info", std::move(list)}}.dump(2) + "\n";
}

void add_calibrations(nlohmann::json &configuration, const std::filesystem::path &file)
{
    const auto document = load_configuration(file);
    const auto faults = check_configuration(document);
    if (!faults.empty() || !document.contains("calibration_info"))
    {
        throw configuration_error(file.string() +
                                  " is not a calibration file; make one with \"vantor calibrate\".");
    }
    std::set<nlohmann::json> known;
    for (const auto &entry : configuration.value("calibration_info", nlohmann::json::array()))
    {
        known.insert(entry.at("sensor_id"));
    }
    for (const auto &entry : document["calibration_info"])
    {
        if (!known.contains(entry["sensor_id"]))
        {
            configuration["calibration_info"].push_back(entry);
        }
    }
}

} // namespace vantor
