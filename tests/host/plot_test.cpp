/** @file
 * Tests of the figures for pictures, and of drawing them.
 */
#include "plot/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <numeric>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "fake_server.h"
#include "file_size_limit.h"
#include "plot/item_analysis.h"
#include "plot/spectrum.h"
#include "recording/recording_error.h"
#include "recording/recording_writer.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using test::read_file;

TEST(spectrum, has_its_peak_at_the_frequency_of_a_tone)
{
    constexpr size_t length = 64;
    for (const int bin : {-32, -7, 5, 31})
    {
        spectrum result(length);
        std::vector<std::complex<double>> tone;
        for (size_t n = 0; n < length; ++n)
        {
            tone.push_back(std::polar(3.0, 2.0 * std::numbers::pi * bin * static_cast<double>(n) / length));
        }
        result.add(tone);
        const auto powers = result.powers();
        const auto peak = std::max_element(powers.begin(), powers.end()) - powers.begin();
        EXPECT_EQ(peak - static_cast<int>(length) / 2, bin);
    }
}

TEST(spectrum, ignores_constant_samples)
{
    spectrum result(16);
    result.add(std::vector<std::complex<double>>(16, {100.0, -50.0}));
    EXPECT_EQ(result.count(), 1U);
    for (const double power : result.powers())
    {
        EXPECT_NEAR(power, 0.0, 1e-18);
    }
}

/** Samples with noise, some tones and a mean, the same in every run. */
std::vector<std::complex<double>> make_segment(size_t length, uint32_t seed)
{
    std::mt19937 noise(seed);
    const auto draw = [&noise] { return static_cast<double>(noise()) / 0x1p32 * 2000.0 - 1000.0; };
    std::vector<std::complex<double>> segment;
    for (size_t n = 0; n < length; ++n)
    {
        const auto time = static_cast<double>(n);
        segment.push_back(std::complex(700.0, -300.0) + std::polar(20000.0, 0.7 * time) +
                          std::polar(400.0, -2.1 * time) + std::complex(draw(), draw()));
    }
    return segment;
}

/** The power at a frequency, in turns per sample, of a segment without its mean in a Hann window: the
 * definition. */
double direct_power(const std::vector<std::complex<double>> &segment, double frequency)
{
    constexpr double pi = std::numbers::pi;
    const auto length = static_cast<double>(segment.size());
    const auto mean = std::accumulate(segment.begin(), segment.end(), std::complex<double>()) / length;
    std::complex<double> sum;
    for (size_t n = 0; n < segment.size(); ++n)
    {
        const auto time = static_cast<double>(n);
        const double weight = std::pow(std::sin(pi * (time + 0.5) / length), 2);
        sum += weight * (segment[n] - mean) * std::polar(1.0, -2.0 * pi * frequency * time);
    }
    return std::norm(sum);
}

/** Compares a spectrum of two segments with direct sums. */
class spectrum_of_length : public testing::TestWithParam<size_t>
{
};

TEST_P(spectrum_of_length, is_the_mean_of_direct_sums)
{
    const auto length = GetParam();
    const auto first = make_segment(length, 1);
    const auto second = make_segment(length, 2);
    spectrum result(length);
    result.add(first);
    result.add(second);
    const auto powers = result.powers();
    ASSERT_EQ(powers.size(), length);
    const double rounding = 1e-12 * *std::max_element(powers.begin(), powers.end());
    for (size_t k = 0; k < length; ++k)
    {
        const double frequency =
            (static_cast<double>(k) - static_cast<double>(length / 2)) / static_cast<double>(length);
        const double expected = (direct_power(first, frequency) + direct_power(second, frequency)) / 2.0;
        EXPECT_NEAR(powers[k], expected, rounding) << k;
    }
}

// 1; powers of 2, 3 and 5; products of small primes; primes, which have a code of their own from 7 on.
INSTANTIATE_TEST_SUITE_P(lengths, spectrum_of_length,
                         testing::Values(1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 15, 16, 25, 27, 31, 49, 60, 77,
                                         125, 256, 480, 509, 511, 512));

TEST(spectrum, has_no_power_without_a_segment)
{
    EXPECT_THAT(spectrum(3).powers(), testing::Each(0.0));
}

TEST(spectrum, refuses_segments_that_are_empty_or_of_another_length)
{
    EXPECT_THROW(spectrum(0), std::invalid_argument);
    spectrum result(16);
    EXPECT_THROW(result.add(make_segment(15, 1)), std::invalid_argument);
    EXPECT_THROW(result.add(make_segment(17, 1)), std::invalid_argument);
    EXPECT_EQ(result.count(), 0U);
}

/**
 * Records frames with an echo at one point of each item whose phase changes by this much per frame. In frames
 * of the first item that are not valid, the echo is at another point.
 */
void write_turning_recording(const std::filesystem::path &directory, int frames, double turn,
                             const std::set<int> &not_valid = {})
{
    const auto session = test::example_session();
    const auto description = test::example_description();
    const auto metadata = std::make_shared<const session_metadata>(description.metadata);
    recording_writer writer(directory, description);
    for (int number = 0; number < frames; ++number)
    {
        message received;
        received.header = session.frame_header(static_cast<uint32_t>(number));
        std::vector<sample> samples(95);
        const auto echo = std::polar(10000.0, turn * number);
        const sample value(static_cast<int16_t>(echo.real()), static_cast<int16_t>(echo.imag()));
        for (const size_t place : {12U, 32U, 43U, 70U})
        {
            samples[place] = value;
        }
        if (not_valid.contains(number))
        {
            received.header["result_info"][0][0]["data_valid"] = false;
            samples[12] = {};
            samples[3] = {30000, 30000};
        }
        const auto bytes = std::as_bytes(std::span(samples));
        received.payload.assign(bytes.begin(), bytes.end());
        writer.add(decode_frame(received, metadata));
    }
    writer.finish();
}

TEST(item_analysis, follows_the_strongest_echo)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 64, 1.0);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.point, 12U);
    EXPECT_NEAR(analysis.profile[12], 10000.0, 1.0);
    ASSERT_EQ(analysis.phase.size(), 64U);
    // Ten turns without a jump.
    EXPECT_NEAR(analysis.phase.back() - analysis.phase.front(), 63.0, 0.01);
    EXPECT_NEAR(analysis.seconds.back(), 63 * 0.02, 1e-9);
    EXPECT_EQ(analysis.map.size(), 64U);
    EXPECT_TRUE(analysis.between_frames);
    const auto peak =
        std::max_element(analysis.powers.begin(), analysis.powers.end()) - analysis.powers.begin();
    EXPECT_NEAR(analysis.frequencies[static_cast<size_t>(peak)], 50.0 / (2.0 * std::numbers::pi), 50.0 / 64);
}

TEST(item_analysis, leaves_out_frames_that_are_not_valid)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 64, 1.0, {0, 63});
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.point, 12U);
    EXPECT_NEAR(analysis.profile[12], 10000.0, 1.0);
    EXPECT_EQ(analysis.profile[3], 0.0);
    ASSERT_EQ(analysis.phase.size(), 62U);
    EXPECT_NEAR(analysis.seconds.front(), 0.02, 1e-9);
    EXPECT_NEAR(analysis.phase.back() - analysis.phase.front(), 61.0, 0.01);
    EXPECT_EQ(analysis.map.size(), 64U);
    EXPECT_EQ(analysis.powers.size(), 62U);
    // Half of the frame rate.
    EXPECT_NEAR(analysis.frequencies.front(), -25.0, 0.1);
}

TEST(item_analysis, shows_the_level_when_no_frame_is_valid)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 3, 1.0, {0, 1, 2});
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.point, 3U);
    EXPECT_TRUE(analysis.phase.empty());
    EXPECT_TRUE(analysis.powers.empty());
    draw_recording(recording, directory / "level.png", std::nullopt);
}

TEST(item_analysis, uses_the_given_distance)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 2, 0.0);
    recording_reader recording(directory / "out");
    EXPECT_EQ(analyse_item(recording, 0, 0.25 + 3 * 0.01 + 0.002).point, 3U);
    EXPECT_TRUE(analyse_item(recording, 0, 0.3).powers.empty());
}

TEST(item_analysis, keeps_the_map_small)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 1000, 0.1);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 1, std::nullopt);
    EXPECT_LE(analysis.map.size(), 400U);
    EXPECT_GE(analysis.map.size(), 200U);
}

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
    draw_recording(recording, file, std::nullopt);
    const auto bytes = read_file(file);
    ASSERT_GT(bytes.size(), 10000U);
    EXPECT_EQ(size_of(bytes), std::pair(1900, 3 * 380));
}

TEST(picture, is_drawn_of_a_single_frame)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 1, 0.0);
    recording_reader recording(directory / "out");
    draw_recording(recording, directory / "one.png", std::nullopt);
    EXPECT_TRUE(std::filesystem::exists(directory / "one.png"));
}

/** Records frames of this many items, each with one sub-sweep. */
void write_items(const std::filesystem::path &directory, size_t items, int points, double base_step)
{
    const nlohmann::json layout = {{"calibration_temperature", 25}, {"frame_data_length", points},
                                   {"sweep_data_length", points},   {"max_sweep_rate", 1000},
                                   {"high_speed_mode", true},       {"base_step_length_m", base_step},
                                   {"subsweep_data_offset", {0}},   {"subsweep_data_length", {points}}};
    auto description = test::example_description();
    const nlohmann::json item = {{"sensor_id", 1}, {"config", nlohmann::json::object()}};
    description.configuration["groups"] = std::vector{std::vector(items, item)};
    auto document = test::example_session().metadata;
    document["metadata"] = std::vector{std::vector(items, layout)};
    description.metadata = decode_metadata(document);
    const auto metadata = std::make_shared<const session_metadata>(description.metadata);
    recording_writer writer(directory, description);
    for (uint32_t number = 0; number < 20; ++number)
    {
        message received;
        received.header = test::example_session().frame_header(number);
        const auto info = received.header["result_info"][0][0];
        received.header["result_info"] = std::vector{std::vector(items, info)};
        received.payload.resize(metadata->frame_length() * sizeof(sample),
                                std::byte{static_cast<unsigned char>(number)});
        writer.add(decode_frame(received, metadata));
    }
    writer.finish();
}

TEST(picture, is_drawn_of_many_items)
{
    const test::temporary_directory directory;
    write_items(directory / "out", 30, 5, 0.0025);
    recording_reader recording(directory / "out");
    const sheet_format small{.width = 600, .row_height = 120, .highest = 3000};
    draw_recording(recording, directory / "many.png", std::nullopt, small);
    EXPECT_EQ(size_of(read_file(directory / "many.png")), std::pair(600, 3000));
}

TEST(picture, is_not_higher_than_the_drawing_library_allows)
{
    const test::temporary_directory directory;
    write_items(directory / "out", 2, 5, 0.0025);
    recording_reader recording(directory / "out");
    const sheet_format narrow{.width = 300, .row_height = 20000};
    draw_recording(recording, directory / "high.png", std::nullopt, narrow);
    EXPECT_EQ(size_of(read_file(directory / "high.png")), std::pair(300, 32000));
}

TEST(picture, has_lower_rows_when_there_are_many)
{
    EXPECT_EQ(sheet_height({}, 1), 380);
    EXPECT_EQ(sheet_height({}, 84), 84 * 380);
    EXPECT_EQ(sheet_height({}, 85), 85 * 376);
    EXPECT_EQ(sheet_height({}, 100), 32000);
    EXPECT_EQ(sheet_height({}, 1000), 32000);
}

TEST(picture, is_drawn_of_a_single_point_without_a_warning)
{
    const test::temporary_directory directory;
    write_items(directory / "out", 1, 1, 0.0025);
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, directory / "one.png", std::nullopt);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(picture, is_drawn_when_distances_are_unknown)
{
    const test::temporary_directory directory;
    write_items(directory / "out", 1, 5, std::nan(""));
    recording_reader recording(directory / "out");
    testing::internal::CaptureStderr();
    draw_recording(recording, directory / "unknown.png", std::nullopt);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(picture, is_complete_or_not_written)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 40, 0.3);
    recording_reader recording(directory / "out");
    const auto file = directory.write("picture.png", "old picture");
    // Too little for the figures; enough for them, but not for the picture.
    for (const rlim_t bytes : {100, 60'000})
    {
        const test::file_size_limit limit(bytes);
        EXPECT_THAT([&] { draw_recording(recording, file, std::nullopt); },
                    testing::ThrowsMessage<recording_error>(
                        testing::AllOf(testing::HasSubstr(std::filesystem::temp_directory_path().string()),
                                       testing::HasSubstr("set TMPDIR to another directory"))))
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
    draw_recording(recording, file, std::nullopt);
    EXPECT_EQ(read_file(file).substr(1, 3), "PNG");
    EXPECT_EQ(read_file(other_name), "old picture");
}

/** While an object exists, an environment variable has another value. */
class changed_variable
{
public:
    changed_variable(const char *name, const char *value) : name_(name)
    {
        if (const char *const before = std::getenv(name))
        {
            before_ = before;
        }
        setenv(name, value, 1);
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
    const auto missing = (directory / "missing").string();
    const changed_variable variable("TMPDIR", missing.c_str());
    EXPECT_THAT([&] { draw_recording(recording, directory / "x.png", std::nullopt); },
                testing::ThrowsMessage<recording_error>("Cannot create temporary files: TMPDIR is not a "
                                                        "directory that exists; set it to another one."));
}

TEST(picture, reports_when_it_cannot_be_drawn_or_written)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "empty", 0);
    recording_reader empty(directory / "empty");
    EXPECT_THROW(draw_recording(empty, directory / "x.png", std::nullopt), bad_recording);
    write_turning_recording(directory / "out", 2, 0.0);
    recording_reader recording(directory / "out");
    EXPECT_THROW(draw_recording(recording, directory / "no/such/directory.png", std::nullopt),
                 recording_error);
}

} // namespace
} // namespace vantor
