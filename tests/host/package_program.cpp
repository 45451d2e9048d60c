/** @file
 * A program of another project: plans a configuration, records it, and compares what it reads with what it
 * received. Prints "ok" if everything is as it must be.
 */
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <vantor/configuration_check.h>
#include <vantor/hub.h>
#include <vantor/plan.h>
#include <vantor/recording_reader.h>
#include <vantor/recording_sink.h>
#include <vantor/recording_source.h>
#include <vantor/recording_writer.h>
#include <vantor/reported_plan.h>
#include <vantor/session_source.h>
#include <vantor/wish.h>

namespace
{

/** Number of frames to record. */
constexpr uint64_t frame_count = 20;

/** Ends the program unless a condition holds. */
void require(bool condition, const char *what)
{
    if (!condition)
    {
        throw vantor::error(what);
    }
}

/** Keeps all frames. */
class frame_keeper : public vantor::frame_sink
{
public:
    void begin(const vantor::segment & /*next*/) override
    {
        throw vantor::error("an unexpected segment began");
    }

    void add(const std::shared_ptr<const vantor::frame> &received) override
    {
        frames.push_back(received);
    }

    std::vector<std::shared_ptr<const vantor::frame>> frames; /**< in the order of time */
};

/** Chooses a configuration for two sensors. */
nlohmann::json make_configuration()
{
    const auto chosen = vantor::choose_configuration(
        {.nearest_m = 0.3, .farthest_m = 1.5, .resolution_m = 0.1, .frame_rate = 50.0, .sensors = {1, 2}});
    require(chosen.shortfalls.empty(), "the wish is not met");
    require(vantor::check_configuration(chosen.configuration).empty(), "the configuration is not valid");
    return chosen.configuration;
}

/** Records frames; returns those that were received. */
std::vector<std::shared_ptr<const vantor::frame>> record(const nlohmann::json &configuration,
                                                         const std::string &directory)
{
    const auto where = vantor::parse_address("sim:--clock virtual");
    const auto loop = std::make_shared<vantor::event_loop>();
    vantor::client server(where, {}, loop);
    vantor::session_source source(server, configuration, {}, *loop);
    vantor::recording_writer writer(directory, {.configuration = configuration,
                                                .metadata = source.metadata(),
                                                .server = server.server(),
                                                .source = vantor::describe_source(where, server.server())});
    vantor::recording_sink recorder(writer, source.metadata(), vantor::default_queue_size, *loop);
    frame_keeper keeper;
    vantor::hub stream(source, {&recorder, &keeper}, *loop);
    stream.run({.frames = frame_count});
    require(recorder.close() == nullptr, "the recording failed");
    writer.finish();
    return keeper.frames;
}

/** Compares one item of a recording with what was received. */
void compare_item(vantor::recording_reader &recording, size_t index,
                  const std::vector<std::shared_ptr<const vantor::frame>> &received)
{
    auto table = recording.open_table(index);
    std::vector<vantor::sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        const auto &item = received[number]->items()[index];
        const auto row = table.next();
        recording.read_frame(index, number, samples);
        require(std::ranges::equal(samples, item.samples), "the samples differ");
        require(row && row->tick == item.tick && row->temperature == item.temperature, "the rows differ");
    }
    require(!table.next(), "the table has too many rows");
    require(recording.items()[index].layout.distances_m == received[0]->items()[index].layout->distances_m,
            "the distances differ");
}

/** Compares the figures of the plan with the layout of an item of a recording. */
void compare_plan(const vantor::item_plan &planned, const vantor::item_layout &recorded)
{
    const auto &subsweep = planned.subsweeps.at(0);
    require(planned.frame_length() == recorded.frame_length, "the plan has another length");
    require(std::abs(subsweep.first_m - recorded.distances_m.front()) < 1e-6 && subsweep.first_m <= 0.3 &&
                std::abs(subsweep.last_m - recorded.distances_m.back()) < 1e-6 && subsweep.last_m >= 1.5,
            "the plan has other distances");
}

} // namespace

int main(int count, char **arguments)
try
{
    require(count == 2, "usage: package_program NEW-DIRECTORY");
    const auto configuration = make_configuration();
    const auto received = record(configuration, arguments[1]);
    vantor::recording_reader recording(arguments[1]);
    require(recording.frames() == frame_count && received.size() == frame_count, "frames are missing");
    require(recording.session().configuration == configuration, "the configuration differs");
    require(recording.session().source["simulator"]["clock"] == "virtual", "the origin differs");
    require(recording.captures().size() == 1, "there is a gap");
    auto planned = vantor::plan(configuration);
    vantor::apply_metadata(planned, recording.session().metadata);
    require(recording.items().size() == 2, "there are not two items");
    for (size_t i = 0; i < recording.items().size(); ++i)
    {
        compare_item(recording, i, received);
        compare_plan(planned.items.at(i), recording.items()[i].layout);
    }
    std::cout << "ok\n";
}
catch (const std::exception &failure)
{
    std::cerr << failure.what() << "\n";
    return 1;
}
