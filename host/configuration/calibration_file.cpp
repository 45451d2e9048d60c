/** @file
 * Calibration files.
 */
#include "vantor/calibration_file.h"

#include <set>
#include <system_error>

#include "vantor/configuration.h"
#include "vantor/configuration_check.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Whether a document has calibrations of the right form. */
bool has_calibrations(const json &document)
{
    return document.contains("calibration_info") && check_configuration(document).empty();
}

/** The first sensor that has two calibrations in a document; null if there is none. */
json repeated_sensor(const json &document)
{
    std::set<json> sensors;
    for (const auto &entry : document["calibration_info"])
    {
        if (!sensors.insert(entry["sensor_id"]).second)
        {
            return entry["sensor_id"];
        }
    }
    return nullptr;
}

/**
 * Reads the calibrations of a file. It must not be a pipe, because reading one can take forever.
 *
 * @throws configuration_error if it cannot be read, is not a calibration file, or has two calibrations of a
 *         sensor
 */
json read_calibrations(const std::filesystem::path &file)
{
    std::error_code failure;
    if (std::filesystem::exists(file, failure) && !std::filesystem::is_directory(file, failure) &&
        !std::filesystem::is_regular_file(file, failure))
    {
        throw configuration_error("Cannot read " + file.string() + ": it is not a regular file.");
    }
    const auto document = load_configuration(file);
    if (!has_calibrations(document))
    {
        throw configuration_error(file.string() +
                                  " is not a calibration file; make one with \"vantor calibrate\".");
    }
    if (const auto sensor = repeated_sensor(document); !sensor.is_null())
    {
        throw configuration_error(file.string() + " contains two calibrations of sensor " + sensor.dump() +
                                  "; remove one of them.");
    }
    return document["calibration_info"];
}

/** The numbers of the sensors that a document uses without a calibration. */
std::set<json> sensors_to_calibrate(const json &configuration)
{
    std::set<json> sensors;
    for (const auto &item : list_items(configuration))
    {
        sensors.insert(item.sensor_id);
    }
    for (const auto &entry : configuration.value("calibration_info", json::array()))
    {
        sensors.erase(entry.at("sensor_id"));
    }
    return sensors;
}

/** Adds calibrations of sensors that a document uses without one; returns whether it now has one for any. */
bool add_wanted(json &configuration, const json &available)
{
    const auto wanted = sensors_to_calibrate(configuration);
    bool fits = wanted.empty();
    for (const auto &entry : available)
    {
        if (wanted.contains(entry["sensor_id"]))
        {
            configuration["calibration_info"].push_back(entry);
            fits = true;
        }
    }
    return fits;
}

/** The sensors of calibrations as text. */
std::string list_sensors(const json &calibrations)
{
    std::string text;
    for (const auto &entry : calibrations)
    {
        text += (text.empty() ? "sensor " : ", sensor ") + entry["sensor_id"].dump();
    }
    return text;
}

} // namespace

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

void check_calibrations(const std::vector<calibration> &calibrations, const std::set<unsigned> &sensors)
{
    const auto document = json::parse(calibration_text(calibrations), nullptr, false);
    if (document.is_discarded() || !has_calibrations(document))
    {
        throw protocol_error("The server sent a calibration that no session can use.");
    }
    if (const auto sensor = repeated_sensor(document); !sensor.is_null())
    {
        throw protocol_error("The server sent two calibrations of sensor " + sensor.dump() + ".");
    }
    for (const auto &entry : calibrations)
    {
        if (!sensors.contains(entry.sensor_id))
        {
            throw protocol_error("The server sent a calibration of sensor " +
                                 std::to_string(entry.sensor_id) + ", which it was not to calibrate.");
        }
    }
}

void add_calibrations(nlohmann::json &configuration, const std::filesystem::path &file)
try
{
    const auto available = read_calibrations(file);
    if (!add_wanted(configuration, available))
    {
        throw configuration_error(file.string() + " contains calibrations of " + list_sensors(available) +
                                  " only, none of which the configuration needs.");
    }
}
catch (const nlohmann::json::exception &)
{
    throw configuration_error("\"calibration_info\" of the configuration is not a list of calibrations.");
}

void add_calibrations(nlohmann::json &configuration, const std::vector<calibration> &calibrations)
{
    add_wanted(configuration, json::parse(calibration_text(calibrations))["calibration_info"]);
}

} // namespace vantor
