/** @file
 * Tests of drawing pictures.
 */
#include "plot/picture.h"

#include <cmath>
#include <cstdlib>
#include <numbers>
#include <optional>
#include <random>
#include <utility>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "file_size_limit.h"
#include "plot/gnuplot.h"
#include "plot/panel_files.h"
#include "plot/panels.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::read_file;
using test::write_items;
using test::write_turning_recording;
using testing::HasSubstr;
using testing::Not;

/** Width and height of a PNG picture. */
std::pair<int, int> size_of(const std::string &bytes)
{
    const auto number = [&](size_t place) {
        return static_cast<unsigned char>(bytes.at(place)) * 256 +
               static_cast<unsigned char>(bytes.at(place + 1));
    };
    EXPECT_EQ(bytes.substr(1, 3), "PNG");
    return {number(18), number(22)};
}

TEST(picture, is_a_png_of_one_row_for_each_item)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 40, 0.3);
    recording_reader recording(directory / "out");
    const auto file = directory / "it's a picture.png";
    const auto drawn = draw_recording(recording, {.output = file, .title = "it's a title"});
    EXPECT_THAT(drawn.pages, testing::ElementsAre(file));
    EXPECT_THAT(drawn.warnings, testing::IsEmpty());
    const auto bytes = read_file(file);
    ASSERT_GT(bytes.size(), 10000U);
    const auto [width, height] = size_of(bytes);
    EXPECT_EQ(width, 4 * 480);
    EXPECT_GT(height, 3 * 400);
    EXPECT_LT(height, 4 * 400);
}

TEST(picture, has_a_velocity_map_for_several_sweeps)
{
    const test::temporary_directory directory;
    test::write_item(directory / "out", {.config = {{"sweeps_per_frame", 4}}, .sweeps = 4}, 20,
                     [](int, size_t, size_t point) { return point == 50 ? 2000.0 : 1.0; });
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, {.output = directory / "map.png"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(size_of(read_file(directory / "map.png")).first, 5 * 480);
}

TEST(picture, is_drawn_of_a_single_frame)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 1, 0.0);
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, {.output = directory / "one.png"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(std::filesystem::exists(directory / "one.png"));
}

TEST(picture, is_drawn_when_no_frame_is_valid)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 3, 1.0, {0, 1, 2});
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, {.output = directory / "level.png"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(picture, has_six_items_on_a_page)
{
    const test::temporary_directory directory;
    write_items(directory / "six", 6, 5, 0.0025);
    write_items(directory / "fourteen", 14, 5, 0.0025);
    recording_reader six(directory / "six");
    recording_reader fourteen(directory / "fourteen");
    EXPECT_EQ(draw_recording(six, {.output = directory / "six.png"}).pages.size(), 1U);
    const auto drawn = draw_recording(fourteen, {.output = directory / "many.png"});
    EXPECT_THAT(drawn.pages, testing::ElementsAre(directory / "many.png", directory / "many-2.png",
                                                  directory / "many-3.png"));
    const auto height = [&](size_t page) { return size_of(read_file(drawn.pages.at(page))).second; };
    EXPECT_EQ(height(0), height(1));
    EXPECT_LT(height(2), height(1) / 2);
}

TEST(picture, is_drawn_of_a_single_point_without_a_warning)
{
    const test::temporary_directory directory;
    write_items(directory / "out", 1, 1, 0.0025);
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, {.output = directory / "one.png"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(picture, is_drawn_when_distances_are_unknown)
{
    const test::temporary_directory directory;
    write_items(directory / "out", 1, 5, std::nan(""));
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, {.output = directory / "unknown.png"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(picture, is_drawn_without_a_clock)
{
    for (const json &config : {json::object(), json{{"frame_rate", 40}}})
    {
        const test::temporary_directory directory;
        test::write_item(directory / "out", {.config = config, .has_clock = false}, 20,
                         [](int, size_t, size_t point) { return point == 50 ? 2000.0 : 1.0; });
        recording_reader recording(directory / "out");
        testing::internal::CaptureStderr();
        draw_recording(recording, {.output = directory / "x.png"});
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
}

TEST(picture, warns_of_doubtful_frames)
{
    const test::temporary_directory directory;
    const test::written_item item{.config = json::object(), .missing = {{10, 30}}, .breaks = {{30, 2.0}}};
    test::write_item(
        directory / "out", item, 50, [](int, size_t, size_t point) { return point == 50 ? 2000.0 : 1.0; },
        [](int frame, json &info) {
            info["data_saturated"] = frame == 2;
            info["frame_delayed"] = frame == 3;
            info["calibration_needed"] = frame > 40;
        });
    recording_reader recording(directory / "out");
    EXPECT_THAT(
        draw_recording(recording, {.output = directory / "x.png"}).warnings,
        testing::ElementsAre(
            "missing: 30 frames; the host, the link, the server or a sensor was too slow, or data were "
            "damaged",
            "rate not reached: 31.2 of 50.0 frames/s, by the clock of the server",
            "break of 2.0 s: reconnected",
            "saturated: 1 of 50 frames of group 1, item 1; use a lower receiver_gain",
            "delayed: 1 of 50 frames of group 1, item 1; use a lower frame_rate or a faster link",
            "calibration needed: 9 of 50 frames of group 1, item 1; calibrate again, or record "
            "with --recalibrate"));
}

TEST(picture, warns_of_aliased_motion)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 40, 2.0);
    recording_reader recording(directory / "out");
    const auto drawn = draw_recording(recording, {.output = directory / "x.png"});
    ASSERT_EQ(drawn.warnings.size(), 3U);
    EXPECT_THAT(drawn.warnings[0],
                testing::StartsWith("Sensor 1 (group 1, item 1): the motion is too fast for 50.0 frames/s"));
}

/** The gnuplot commands for an item, and its files. */
class panels : public testing::Test
{
protected:
    /** Prepares the first item of a recording. */
    std::string draw(std::optional<double> distance = std::nullopt)
    {
        recording_reader recording(directory / "out");
        const auto analysis = analyse_item(recording, 0, distance);
        const page sheet(1, 5);
        const panel_row place{.sheet = sheet,
                              .row = 0,
                              .item = recording.items()[0],
                              .analysis = analysis,
                              .base = (directory / "item").string()};
        write_panel_files(place.base, place.item, place.analysis);
        return draw_panels(place) + draw_velocity_map(place);
    }

    test::temporary_directory directory;
};

TEST_F(panels, show_noise_bounds_and_units)
{
    const json config = {{"sweeps_per_frame", 16}, {"sweep_rate", 1000}};
    test::write_item(directory / "out", {.config = config, .sweeps = 16}, 20,
                     [](int, size_t sweep, size_t point) {
                         return (point == 50 ? 3271.7 : 0.0) + 10.0 * static_cast<double>(sweep % 2);
                     });
    const auto commands = draw();
    EXPECT_THAT(commands, HasSubstr("'Mean level: strongest echo at 0.325 m'"));
    EXPECT_THAT(commands, HasSubstr("'level in dBFS'"));
    EXPECT_THAT(commands, HasSubstr("'displacement in mm (positive: away)'"));
    EXPECT_THAT(commands, HasSubstr("'velocity in m/s (positive: away)"));
    EXPECT_THAT(commands, HasSubstr("'ambiguous beyond ±1.25 m/s'"));
    EXPECT_THAT(commands, HasSubstr("set arrow from 1.250000000, graph 0 to 1.250000000, graph 1"));
    // A noise of 10 / √2 and a constant offset of √(5² - 50 / 320): a mean level of 7.73.
    EXPECT_THAT(commands, HasSubstr("set arrow from 0.200000,-72.54"));
    EXPECT_THAT(commands, HasSubstr("set label 'noise and constant offset'"));
    EXPECT_THAT(read_file(directory / "item-0.level"), HasSubstr("\n0.325 -19.9992"));
}

TEST_F(panels, show_a_spectrum_below_the_noise_of_other_points)
{
    const json config = {{"sweeps_per_frame", 16}, {"sweep_rate", 1000}};
    test::write_item(directory / "out", {.config = config, .sweeps = 16}, 20,
                     [](int, size_t sweep, size_t point) {
                         return point == 50 ? 3000.0 : 10.0 * static_cast<double>(sweep % 2);
                     });
    // At the echo, nothing but the lowest level that is drawn.
    EXPECT_THAT(draw(), HasSubstr("set yrange [-125.308733623:"));
    EXPECT_THAT(read_file(directory / "item.spectrum"), HasSubstr(" -110.308734\n"));
}

TEST_F(panels, show_gaps_for_frames_that_are_not_valid)
{
    write_turning_recording(directory / "out", 6, 1.0, {2});
    draw();
    EXPECT_THAT(read_file(directory / "item.track"),
                testing::ContainsRegex("^0 [^\n]*\n0.02 [^\n]*\n\n0.06 "));
    EXPECT_THAT(read_file(directory / "item-0.map"), HasSubstr("\n0.04 0.245 nan\n"));
}

TEST_F(panels, show_gaps_for_frames_that_are_missing)
{
    test::write_item(directory / "out", {.config = json::object(), .missing = {{2, 2}}}, 4,
                     [](int, size_t, size_t point) { return point == 60 ? 3000.0 : 0.0; });
    draw();
    EXPECT_EQ(read_file(directory / "item.track"), "0 0\n0.02 0\n\n0.08 0\n0.1 0\n");
    const auto map = read_file(directory / "item-0.map");
    EXPECT_THAT(map, HasSubstr("\n0.02 0.19875 -110.3"));
    EXPECT_THAT(map, HasSubstr("\n0.04 0.19875 nan\n"));
    EXPECT_THAT(map, HasSubstr("\n0.06 0.19875 nan\n"));
    EXPECT_THAT(map, HasSubstr("\n0.08 0.19875 -110.3"));
    // The last strip ends here.
    EXPECT_THAT(map, HasSubstr("\n0.12 0.19875 -110.3"));
}

TEST_F(panels, number_frames_without_clock_and_rate)
{
    test::write_item(directory / "out", {.config = json::object(), .has_clock = false}, 4,
                     [](int, size_t, size_t point) { return point == 60 ? 3000.0 : 0.0; });
    const auto commands = draw();
    EXPECT_THAT(commands, HasSubstr("set xlabel 'frame number (neither clock nor rate is known)'"));
    EXPECT_THAT(commands, HasSubstr("'frame rate unknown'"));
    EXPECT_EQ(read_file(directory / "item.track"), "0 0\n1 0\n2 0\n3 0\n");
}

TEST_F(panels, mark_saturated_frames)
{
    test::write_item(
        directory / "out", {.config = json::object()}, 4,
        [](int, size_t, size_t point) { return point == 60 ? 3000.0 : 0.0; },
        [](int frame, json &info) { info["data_saturated"] = frame == 2; });
    EXPECT_THAT(draw(), HasSubstr(".saturated-track' with points"));
    EXPECT_EQ(read_file(directory / "item.saturated-track"), "0.04 0\n");
    EXPECT_EQ(read_file(directory / "item.saturated"), "0.05\n");
}

TEST_F(panels, do_not_present_noise_as_motion)
{
    test::write_item(directory / "out", {.config = json::object()}, 40, [](int frame, size_t, size_t point) {
        return std::polar(100.0, static_cast<double>(frame * frame) * (1.0 + static_cast<double>(point)));
    });
    const auto commands = draw();
    EXPECT_THAT(commands, HasSubstr("'Mean level: no echo above the noise'"));
    EXPECT_THAT(commands, testing::ContainsRegex("'Phase and displacement at [0-9.]+ m: only noise'"));
}

TEST_F(panels, present_an_echo_in_few_frames_as_motion)
{
    const json config = {{"sweeps_per_frame", 16}, {"sweep_rate", 1000}};
    std::mt19937 source(7);
    std::normal_distribution<double> part(0.0, 20.0);
    test::write_item(directory / "out", {.config = config, .sweeps = 16}, 200,
                     [&](int frame, size_t sweep, size_t point) {
                         const double amplitude = frame / 2 == static_cast<int>(point) ? 300.0 : 0.0;
                         return std::complex<double>{part(source), part(source)} +
                                std::polar(amplitude, 2.0 * static_cast<double>(sweep));
                     });
    const auto commands = draw(0.2 + 50 * 0.0025);
    EXPECT_THAT(commands, HasSubstr("'Mean level: echo at 0.325 m in 1 % of the frames'"));
    EXPECT_THAT(commands, HasSubstr("'Phase and displacement at 0.325 m: mostly noise'"));
    EXPECT_THAT(commands, HasSubstr("'Velocity at 0.325 m, between sweeps'"));
}

TEST_F(panels, say_that_aliased_motion_is_ambiguous)
{
    write_turning_recording(directory / "out", 40, 2.0);
    const auto commands = draw();
    EXPECT_THAT(commands, HasSubstr("'Phase and displacement at 0.370 m: ambiguous'"));
    EXPECT_THAT(commands, HasSubstr("'Velocity at 0.370 m, between frames: ambiguous'"));
}

TEST(picture, is_complete_or_not_written)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 40, 0.3);
    recording_reader recording(directory / "out");
    const auto file = directory.write("picture.png", "old picture");
    // Too little for the figures; enough for them, but not for the picture.
    for (const rlim_t bytes : {100U, 60'000U})
    {
        const test::file_size_limit limit(bytes);
        EXPECT_THAT([&] { draw_recording(recording, {.output = file}); },
                    testing::ThrowsMessage<recording_error>(
                        testing::AllOf(HasSubstr(std::filesystem::temp_directory_path().string()),
                                       HasSubstr("set TMPDIR to another directory"))))
            << bytes;
        EXPECT_EQ(read_file(file), "old picture") << bytes;
    }
}

TEST(picture, replaces_an_old_picture_as_a_whole)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 2, 0.3);
    recording_reader recording(directory / "out");
    const auto file = directory.write("picture.png", "old picture");
    const auto other_name = directory / "other name";
    std::filesystem::create_hard_link(file, other_name);
    draw_recording(recording, {.output = file});
    EXPECT_EQ(read_file(file).substr(1, 3), "PNG");
    EXPECT_EQ(read_file(other_name), "old picture");
}

/** While an object exists, an environment variable has another value. */
class changed_variable
{
public:
    changed_variable(const char *name, const std::string &value) : name_(name)
    {
        if (const char *const before = std::getenv(name))
        {
            before_ = before;
        }
        setenv(name, value.c_str(), 1);
    }
    changed_variable(const changed_variable &) = delete;
    changed_variable &operator=(const changed_variable &) = delete;
    changed_variable(changed_variable &&) = delete;
    changed_variable &operator=(changed_variable &&) = delete;

    ~changed_variable()
    {
        before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_);
    }

private:
    const char *name_;
    std::optional<std::string> before_;
};

TEST(picture, needs_a_directory_for_temporary_files)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 2, 0.0);
    recording_reader recording(directory / "out");
    const changed_variable variable("TMPDIR", (directory / "missing").string());
    EXPECT_THAT([&] { draw_recording(recording, {.output = directory / "x.png"}); },
                testing::ThrowsMessage<recording_error>("Cannot create temporary files: TMPDIR is not a "
                                                        "directory that exists; set it to another one."));
}

TEST(picture, leaves_no_temporary_files_when_it_is_stopped)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 10, 0.0);
    recording_reader recording(directory / "out");
    std::filesystem::create_directory(directory / "scratch");
    const changed_variable variable("TMPDIR", (directory / "scratch").string());
    bool used = false;
    recording.on_read([&](uint64_t count) {
        used = used || !std::filesystem::is_empty(directory / "scratch");
        if (count == 25)
        {
            throw drawing_stopped();
        }
    });
    EXPECT_THROW(draw_recording(recording, {.output = directory / "x.png"}), drawing_stopped);
    EXPECT_TRUE(used);
    EXPECT_TRUE(std::filesystem::is_empty(directory / "scratch"));
    EXPECT_FALSE(std::filesystem::exists(directory / "x.png"));
}

TEST(picture, needs_gnuplot_and_names_its_package)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 2, 0.0);
    recording_reader recording(directory / "out");
    const changed_variable variable("PATH", directory.write("empty", "").parent_path().string());
    EXPECT_THAT([&] { draw_recording(recording, {.output = directory / "x.png"}); },
                testing::ThrowsMessage<error>(HasSubstr("install it (package gnuplot-nox)")));
}

TEST(picture, reports_when_it_cannot_be_drawn_or_written)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "empty", 0);
    recording_reader empty(directory / "empty");
    EXPECT_THROW(draw_recording(empty, {.output = directory / "x.png"}), bad_recording);
    write_turning_recording(directory / "out", 2, 0.0);
    recording_reader recording(directory / "out");
    const auto file = directory.write("file", "");
    EXPECT_THROW(draw_recording(recording, {.output = file / "picture.png"}), recording_error);
    const auto picture = directory / "new/directory/picture.png";
    draw_recording(recording, {.output = picture});
    EXPECT_TRUE(std::filesystem::exists(picture));
}

TEST(picture, describes_the_distances_of_a_recording)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 1);
    const recording_reader recording(directory / "out");
    EXPECT_EQ(covered_distances(recording),
              "0.250 to 0.440 m, 0.150 to 0.195 m, 0.500 to 0.780 m, -0.103 to -0.030 m");
}

TEST(gnuplot, receives_no_command_in_a_text)
{
    EXPECT_EQ(gnuplot_quote("it's\n!touch file\n`date`\t\x1b[1m"), "'it''s?!touch file?`date`??[1m'");
}

TEST(plot, writes_no_picture_if_the_check_of_the_recording_is_stopped)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 5);
    recording_reader recording(directory / "out");
    const auto stop = [] { throw recording_error("stopped"); };
    EXPECT_THROW(draw_recording(recording, {.output = directory / "x.png", .complete = stop}),
                 recording_error);
    EXPECT_FALSE(std::filesystem::exists(directory / "x.png"));
}

} // namespace
} // namespace vantor
