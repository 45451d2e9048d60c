/** @file
 * Tests of the stand-in for the sensor library: it refuses and counts every contract violation, and only
 * those.
 */
#include "stand_in.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_diagnostic_log.h"
#include "zet_nox_k330.h"
#include "zet_probes.h"
#include "zet_processing_cca.h"
#include "zet_sensor.h"

namespace
{

/** The board: records how the stand-in uses it, and can misbehave. */
struct board_t
{
    std::set<zet_sensor_id_t> pending; /**< interrupts that were not taken */
    std::vector<zet_sensor_id_t> raised;
    std::vector<std::string> errors; /**< lines of level ERROR */
    std::vector<std::string> lines;  /**< all others */
    size_t live = 0;                 /**< allocations that were not freed */
    size_t transfers = 0;
    size_t word_transfers = 0;
    size_t longest = 0; /**< in bytes */
    std::vector<uint8_t> sent;
    void *spare = nullptr; /**< freed memory that the next allocation returns again */
    bool is_keeping_spare = false;
    /** Offset from the end, or below 0 from the start, at which a transfer writes one byte more. */
    int overrun = 0;
    bool is_overrunning = false;
    bool is_memory_exhausted = false;
    bool is_memory_misaligned = false;
    bool shows_lines = true; /**< supply and enable */
};

board_t board;

void *allocate(size_t size)
{
    if (board.is_memory_exhausted)
    {
        return nullptr;
    }
    ++board.live;
    if (board.spare != nullptr)
    {
        return std::exchange(board.spare, nullptr);
    }
    auto *memory = static_cast<char *>(std::malloc(size + 16));
    return board.is_memory_misaligned ? memory + 4 : memory;
}

void release(void *memory)
{
    board.live -= memory != nullptr ? 1 : 0;
    if (board.is_keeping_spare)
    {
        board.spare = memory;
        return;
    }
    std::free(board.is_memory_misaligned ? static_cast<char *>(memory) - 4 : memory);
}

void exchange(uint8_t *buffer, size_t size)
{
    board.longest = std::max(board.longest, size);
    board.sent.insert(board.sent.end(), buffer, buffer + size);
    std::fill_n(buffer, size, uint8_t{0xFF});
    if (board.is_overrunning)
    {
        *(board.overrun < 0 ? buffer + board.overrun : buffer + size + board.overrun) = 0;
    }
}

void transfer(zet_sensor_id_t /*sensor_id*/, uint8_t *buffer, size_t size)
{
    ++board.transfers;
    exchange(buffer, size);
}

void transfer16(zet_sensor_id_t /*sensor_id*/, uint16_t *buffer, size_t size)
{
    ++board.word_transfers;
    exchange(reinterpret_cast<uint8_t *>(buffer), size * 2);
}

void write_log(zet_log_level_t level, const char * /*module*/, const char *format, ...)
{
    EXPECT_STREQ(format, "%s");
    va_list arguments;
    va_start(arguments, format);
    (level == ZET_LOG_LEVEL_ERROR ? board.errors : board.lines).emplace_back(va_arg(arguments, const char *));
    va_end(arguments);
}

void switch_on(zet_sensor_id_t sensor_id)
{
    stand_in_note_supply(sensor_id, true);
    stand_in_note_enable(sensor_id, true);
}

void switch_off(zet_sensor_id_t sensor_id)
{
    stand_in_note_enable(sensor_id, false);
    stand_in_note_supply(sensor_id, false);
}

/** Resets a sensor with its enable line. */
void reset(zet_sensor_id_t sensor_id)
{
    stand_in_note_enable(sensor_id, false);
    stand_in_note_enable(sensor_id, true);
}

/** Expects a call to cause one contract violation, whose text contains @p text. */
#define EXPECT_REFUSED(call, text)                                                                           \
    do                                                                                                       \
    {                                                                                                        \
        const uint32_t violations_before = stand_in_violations;                                              \
        call;                                                                                                \
        EXPECT_EQ(stand_in_violations, violations_before + 1) << #call;                                      \
        EXPECT_NE(std::string(stand_in_last_violation).find(text), std::string::npos)                        \
            << stand_in_last_violation;                                                                      \
        ASSERT_FALSE(board.errors.empty());                                                                  \
        EXPECT_EQ(board.errors.back(), "contract violation: " + std::string(stand_in_last_violation));       \
    } while (false)

class stand_in : public testing::Test
{
protected:
    stand_in()
    {
        board = {};
        stand_in_reset();
    }

    /** Registers the board, switches the sensor on and creates a session with one item, ready to be prepared.
     */
    void begin(zet_sensor_id_t sensor_id = 1)
    {
        ASSERT_TRUE(zet_nox_hal_register(&record));
        config = zet_config_create();
        zet_config_subsweep_num_points_set(config, 40, 0);
        zet_config_sweeps_per_frame_set(config, 3);
        id = sensor_id;
        switch_on(id);
        sensor = zet_sensor_create(sensor_id);
        resize();
        processing = zet_processing_create(config, &metadata);
        calibrate();
        ASSERT_EQ(stand_in_violations, 0U) << stand_in_last_violation;
    }

    /** Allocates the buffer for the configuration. */
    void resize()
    {
        uint32_t size = 0;
        ASSERT_TRUE(zet_nox_get_buffer_size(config, &size));
        EXPECT_EQ(size % 4, 0U);
        buffer.assign(size / 4, 0);
        buffer_size = size;
    }

    bool step(bool *complete)
    {
        return zet_sensor_calibrate(sensor, complete, &calibration, buffer.data(), buffer_size);
    }

    /** Calibrates the sensor, without the required reset. */
    void run_calibration()
    {
        bool complete = false;
        for (unsigned i = 0; i < STAND_IN_CALIBRATION_STEPS; ++i)
        {
            ASSERT_TRUE(step(&complete));
            ASSERT_FALSE(complete);
            wait();
        }
        ASSERT_TRUE(step(&complete));
        ASSERT_TRUE(complete);
        EXPECT_TRUE(board.pending.empty());
    }

    void calibrate()
    {
        run_calibration();
        reset(id);
    }

    bool prepare()
    {
        return zet_sensor_prepare(sensor, config, &calibration, buffer.data(), buffer_size);
    }

    bool read()
    {
        return zet_sensor_read(sensor, buffer.data(), buffer_size);
    }

    /** Handles the sensor's interrupt. */
    void wait()
    {
        EXPECT_EQ(board.pending.erase(id), 1U);
    }

    void measure()
    {
        ASSERT_TRUE(zet_sensor_measure(sensor));
        wait();
    }

    /** Measures and reads a frame. */
    void read_frame()
    {
        measure();
        ASSERT_TRUE(read());
    }

    /** Checks the samples of the processed frame. */
    void expect_frame(uint32_t frame_number)
    {
        for (uint32_t i = 0; i < metadata.frame_data_length; ++i)
        {
            const zet_int16_complex_t sample = result.frame[i];
            ASSERT_EQ(static_cast<uint16_t>(sample.real), (frame_number * 7 + i * 3 + id) & 0xFFFFU);
            ASSERT_EQ(sample.imag, static_cast<int16_t>(i));
        }
    }

    void end()
    {
        zet_processing_destroy(processing);
        zet_config_destroy(config);
        zet_sensor_destroy(sensor);
        switch_off(id);
    }

    zet_hal_k330_t record = {64, allocate, release, transfer, write_log, {nullptr}};
    zet_sensor_id_t id = 0;
    zet_config_t *config = nullptr;
    zet_sensor_t *sensor = nullptr;
    zet_processing_t *processing = nullptr;
    zet_processing_metadata_t metadata = {};
    zet_processing_result_t result = {};
    zet_cal_result_t calibration = {};
    std::vector<uint32_t> buffer;
    uint32_t buffer_size = 0;
};

TEST_F(stand_in, runs_a_correct_session)
{
    begin(2);
    ASSERT_TRUE(prepare());
    for (uint32_t frame = 0; frame < 100; ++frame)
    {
        read_frame();
        zet_processing_execute(processing, buffer.data(), &result);
        expect_frame(frame);
        EXPECT_EQ(result.temperature, STAND_IN_TEMPERATURE);
        EXPECT_FALSE(result.data_saturated || result.frame_delayed || result.calibration_needed);
    }
    zet_sensor_status(sensor);
    EXPECT_NE(board.errors.back().find("100 frames measured, 0 not read"), std::string::npos);
    end();
    EXPECT_EQ(board.live, 0U);
    EXPECT_EQ(board.raised, std::vector<zet_sensor_id_t>(STAND_IN_CALIBRATION_STEPS + 100, 2));
    EXPECT_EQ(stand_in_violations, 0U) << stand_in_last_violation;
}

TEST_F(stand_in, continues_to_count_frames_after_a_prepare)
{
    begin();
    for (uint32_t frame = 0; frame < 3; ++frame)
    {
        ASSERT_TRUE(prepare());
        read_frame();
        zet_processing_execute(processing, buffer.data(), &result);
        expect_frame(frame);
    }
    end();
}

TEST_F(stand_in, needs_a_registered_board)
{
    const auto expect_refused = [&](const char *name) {
        EXPECT_NE(std::string(stand_in_last_violation).find(name), std::string::npos)
            << stand_in_last_violation;
        EXPECT_NE(std::string(stand_in_last_violation).find("no board is registered"), std::string::npos);
        stand_in_last_violation[0] = '\0';
    };
    EXPECT_EQ(zet_config_create(), nullptr);
    expect_refused("zet_config_create");
    EXPECT_EQ(zet_sensor_create(1), nullptr);
    expect_refused("zet_sensor_create");
    EXPECT_FALSE(zet_sensor_connected(1));
    expect_refused("zet_sensor_connected");
    zet_nox_set_log_level(ZET_LOG_LEVEL_DEBUG);
    expect_refused("zet_nox_set_log_level");
    zet_diagnostic_log_enable(true);
    expect_refused("zet_diagnostic_log_enable");
    zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, nullptr, nullptr);
    expect_refused("zet_probes_register_callback");
    EXPECT_EQ(zet_processing_points_to_meter(1), 0.0F);
    expect_refused("zet_processing_points_to_meter");
    EXPECT_FALSE(zet_sensor_validate_calibration(&calibration));
    expect_refused("zet_sensor_validate_calibration");
    EXPECT_EQ(stand_in_violations, 8U);
    zet_config_destroy(nullptr);
    zet_sensor_destroy(nullptr);
    zet_processing_destroy(nullptr);
    EXPECT_EQ(stand_in_violations, 8U);
}

TEST_F(stand_in, needs_a_complete_record)
{
    EXPECT_FALSE(zet_nox_hal_register(nullptr));
    EXPECT_EQ(stand_in_violations, 1U);
    zet_hal_k330_t incomplete = record;
    incomplete.log = nullptr;
    EXPECT_FALSE(zet_nox_hal_register(&incomplete));
    EXPECT_EQ(stand_in_violations, 2U);
    EXPECT_STREQ(stand_in_last_violation, "zet_nox_hal_register: the record lacks log");
    incomplete = record;
    incomplete.transfer = nullptr;
    EXPECT_REFUSED(EXPECT_FALSE(zet_nox_hal_register(&incomplete)), "lacks transfer");
    incomplete = record;
    incomplete.mem_alloc = nullptr;
    EXPECT_REFUSED(EXPECT_FALSE(zet_nox_hal_register(&incomplete)), "lacks mem_alloc");
    incomplete = record;
    incomplete.mem_free = nullptr;
    EXPECT_REFUSED(EXPECT_FALSE(zet_nox_hal_register(&incomplete)), "lacks mem_free");
    incomplete = record;
    incomplete.max_spi_transfer_size = 0;
    EXPECT_REFUSED(EXPECT_FALSE(zet_nox_hal_register(&incomplete)), "lacks max_spi_transfer_size");
    EXPECT_REFUSED(EXPECT_EQ(zet_config_create(), nullptr), "no board is registered");
}

TEST_F(stand_in, refuses_numbers_out_of_range)
{
    begin();
    zet_config_t *const c = config;
    EXPECT_REFUSED(zet_config_subsweep_start_point_set(c, 1, 4), "no sub-sweep 4");
    EXPECT_REFUSED(zet_config_subsweep_num_points_set(c, 1, 4), "num_points_set");
    EXPECT_REFUSED(zet_config_subsweep_step_length_set(c, 1, 4), "step_length_set");
    EXPECT_REFUSED(zet_config_subsweep_profile_set(c, ZET_CONFIG_PROFILE_1, 4), "profile_set");
    EXPECT_REFUSED(zet_config_subsweep_hwaas_set(c, 1, 4), "hwaas_set");
    EXPECT_REFUSED(zet_config_subsweep_receiver_gain_set(c, 1, 4), "receiver_gain_set");
    EXPECT_REFUSED(zet_config_subsweep_enable_tx_set(c, true, 4), "enable_tx_set");
    EXPECT_REFUSED(zet_config_subsweep_enable_loopback_set(c, true, 4), "loopback_set");
    EXPECT_REFUSED(zet_config_subsweep_phase_enhancement_set(c, true, 4), "enhancement_set");
    EXPECT_REFUSED(zet_config_subsweep_iq_imbalance_compensation_set(c, true, 255), "no sub-sweep 255");
    EXPECT_REFUSED(zet_config_subsweep_prf_set(c, ZET_CONFIG_PRF_5_2_MHZ, 4), "prf_set");
    EXPECT_REFUSED(zet_nox_set_log_level(static_cast<zet_log_level_t>(5)), "5 is not a level");
    EXPECT_REFUSED(zet_probes_register_callback(ZET_PROBE_ID_MAX, nullptr, nullptr), "24 is not a probe");
    end();
}

TEST_F(stand_in, invalid_configurations_are_not_a_violation)
{
    begin();
    uint32_t size = 7;
    const auto is_valid = [&] { return zet_nox_get_buffer_size(config, &size); };
    zet_config_num_subsweeps_set(config, 5);
    EXPECT_FALSE(is_valid());
    zet_config_num_subsweeps_set(config, 4);
    EXPECT_TRUE(is_valid());
    zet_config_subsweep_start_point_set(config, -1001, 3);
    EXPECT_FALSE(is_valid());
    zet_config_subsweep_start_point_set(config, 3684, 3);
    EXPECT_TRUE(is_valid());
    // The last point is too far for the default prf.
    zet_config_subsweep_start_point_set(config, 3685, 3);
    EXPECT_FALSE(is_valid());
    zet_config_subsweep_prf_set(config, ZET_CONFIG_PRF_13_0_MHZ, 3);
    EXPECT_TRUE(is_valid());
    zet_config_subsweep_prf_set(config, static_cast<zet_config_prf_t>(6), 3);
    EXPECT_FALSE(is_valid());
    zet_config_num_subsweeps_set(config, 1);
    zet_config_sweeps_per_frame_set(config, 0);
    EXPECT_FALSE(is_valid());
    // 410 times 40 points is too much.
    zet_config_sweeps_per_frame_set(config, 410);
    EXPECT_FALSE(is_valid());
    zet_config_sweeps_per_frame_set(config, 409);
    EXPECT_TRUE(is_valid());
    zet_config_sweep_rate_set(config, 25001.0F);
    EXPECT_FALSE(is_valid());
    zet_config_sweep_rate_set(config, 25000.0F);
    EXPECT_TRUE(is_valid());
    zet_config_frame_rate_set(config, 62.0F);
    EXPECT_FALSE(is_valid());
    zet_config_frame_rate_set(config, 61.0F);
    EXPECT_TRUE(is_valid());
    zet_config_continuous_sweep_mode_set(config, true);
    EXPECT_FALSE(is_valid());
    zet_config_sweep_rate_set(config, 61.0F * 409.0F);
    EXPECT_TRUE(is_valid());
    zet_config_inter_frame_idle_state_set(config, ZET_CONFIG_IDLE_STATE_READY);
    zet_config_inter_sweep_idle_state_set(config, ZET_CONFIG_IDLE_STATE_SLEEP);
    EXPECT_FALSE(is_valid());
    EXPECT_EQ(zet_processing_create(config, &metadata), nullptr);
    EXPECT_EQ(stand_in_violations, 0U) << stand_in_last_violation;
    EXPECT_EQ(board.errors.size(), 11U);
    end();
}

TEST_F(stand_in, returns_the_metadata_of_a_configuration)
{
    begin();
    EXPECT_EQ(buffer_size, 16U + 120 * 4 + 8);
    EXPECT_EQ(metadata.frame_data_length, 120);
    EXPECT_EQ(metadata.max_sweep_rate, 25000.0F);
    EXPECT_TRUE(metadata.high_speed_mode);
    zet_processing_destroy(processing);
    zet_config_num_subsweeps_set(config, 2);
    zet_config_subsweep_num_points_set(config, 60, 1);
    processing = zet_processing_create(config, &metadata);
    EXPECT_EQ(metadata.sweep_data_length, 100);
    EXPECT_EQ(metadata.frame_data_length, 300);
    EXPECT_EQ(metadata.subsweep_data_offset[0], 0);
    EXPECT_EQ(metadata.subsweep_data_length[0], 40);
    EXPECT_EQ(metadata.subsweep_data_offset[1], 40);
    EXPECT_EQ(metadata.subsweep_data_length[1], 60);
    EXPECT_EQ(metadata.subsweep_data_length[2], 0);
    EXPECT_EQ(metadata.max_sweep_rate, 10000.0F);
    EXPECT_FALSE(metadata.high_speed_mode);
    end();
}

TEST_F(stand_in, refuses_handles_that_are_not_alive)
{
    begin();
    zet_config_t *const other_config = zet_config_create();
    auto *const dead = reinterpret_cast<zet_config_t *>(buffer.data());
    auto *const dead_sensor = reinterpret_cast<zet_sensor_t *>(config);
    auto *const dead_processing = reinterpret_cast<zet_processing_t *>(config);
    zet_config_destroy(other_config);
    EXPECT_REFUSED(zet_config_destroy(other_config), "the configuration handle is not alive");
    EXPECT_REFUSED(zet_config_num_subsweeps_set(nullptr, 1), "the configuration handle is null");
    EXPECT_REFUSED(EXPECT_EQ(zet_config_num_subsweeps_get(dead), 0), "num_subsweeps_get");
    EXPECT_REFUSED(EXPECT_EQ(zet_config_sweeps_per_frame_get(dead), 0), "sweeps_per_frame_get");
    EXPECT_REFUSED(EXPECT_EQ(zet_config_sweep_rate_get(dead), 0.0F), "sweep_rate_get");
    EXPECT_REFUSED(EXPECT_EQ(zet_config_frame_rate_get(dead), 0.0F), "frame_rate_get");
    EXPECT_REFUSED(zet_config_enable_tx_set(dead, true), "enable_tx_set");
    EXPECT_REFUSED(zet_config_subsweep_hwaas_set(dead, 1, 0), "hwaas_set");
    EXPECT_REFUSED(EXPECT_EQ(zet_processing_create(dead, &metadata), nullptr), "processing_create");
    EXPECT_REFUSED(zet_processing_execute(dead_processing, buffer.data(), &result), "processing handle");
    EXPECT_REFUSED(zet_processing_destroy(dead_processing), "processing_destroy");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(dead_sensor)), "the sensor handle is not alive");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_read(dead_sensor, buffer.data(), buffer_size)), "sensor_read");
    EXPECT_REFUSED(zet_sensor_status(dead_sensor), "sensor_status");
    EXPECT_REFUSED(zet_sensor_destroy(dead_sensor), "sensor_destroy");
    bool complete = true;
    EXPECT_REFUSED(
        EXPECT_FALSE(zet_sensor_calibrate(nullptr, &complete, &calibration, buffer.data(), buffer_size)),
        "the sensor handle is null");
    EXPECT_FALSE(complete);
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(sensor, dead, &calibration, buffer.data(), buffer_size)),
                   "the configuration handle is not alive");
    end();
    EXPECT_EQ(board.live, 0U);
}

TEST_F(stand_in, returns_only_one_handle_of_each_sensor)
{
    begin();
    EXPECT_REFUSED(EXPECT_EQ(zet_sensor_create(0), nullptr), "there is no sensor 0");
    EXPECT_REFUSED(EXPECT_EQ(zet_sensor_create(17), nullptr), "there is no sensor 17");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_connected(0)), "there is no sensor 0");
    EXPECT_REFUSED(EXPECT_EQ(zet_sensor_create(1), nullptr), "sensor 1 has a live handle");
    zet_sensor_destroy(sensor);
    sensor = zet_sensor_create(1);
    EXPECT_NE(sensor, nullptr);
    end();
}

TEST_F(stand_in, refuses_null_pointers_for_results)
{
    begin();
    ASSERT_TRUE(prepare());
    read_frame();
    EXPECT_REFUSED(EXPECT_FALSE(zet_nox_get_buffer_size(config, nullptr)), "pointer to the size");
    EXPECT_REFUSED(EXPECT_EQ(zet_processing_create(config, nullptr), nullptr), "pointer to the metadata");
    EXPECT_REFUSED(zet_processing_execute(processing, buffer.data(), nullptr), "pointer to the result");
    EXPECT_REFUSED(EXPECT_FALSE(zet_processing_cca_check(processing, buffer.data(), nullptr)),
                   "pointer to the value");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_get_cal_info(&calibration, nullptr)),
                   "pointer to the information");
    zet_cal_info_t info = {};
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_get_cal_info(nullptr, &info)), "calibration result is null");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_validate_calibration(nullptr)), "calibration result is null");
    end();
}

TEST_F(stand_in, calibrates_step_by_step)
{
    begin();
    bool complete = false;
    bool other = false;
    EXPECT_REFUSED(EXPECT_FALSE(step(nullptr)), "the flag");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_calibrate(sensor, &complete, nullptr, buffer.data(), buffer_size)),
                   "calibration result is null");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_calibrate(sensor, &complete, &calibration, nullptr, buffer_size)),
                   "buffer is null");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_calibrate(sensor, &complete, &calibration, buffer.data(), 255)),
                   "255 bytes; 256 are needed");
    ASSERT_TRUE(step(&complete));
    EXPECT_REFUSED(EXPECT_FALSE(step(&complete)), "the interrupt of sensor 1 was not waited for");
    board.pending.clear();
    ASSERT_TRUE(step(&complete));
    board.pending.clear();
    EXPECT_REFUSED(EXPECT_FALSE(step(&other)), "step 2 has other arguments");
    ASSERT_TRUE(step(&complete));
    EXPECT_FALSE(zet_sensor_validate_calibration(&calibration));
    board.pending.clear();
    calibration = {};
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "null, damaged or not complete");
    end();
}

TEST_F(stand_in, refuses_prepare_during_a_calibration)
{
    begin();
    const zet_cal_result_t kept = calibration;
    bool complete = false;
    ASSERT_TRUE(step(&complete));
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(sensor, config, &kept, buffer.data(), buffer_size)),
                   "in the middle of its calibration");
    end();
}

TEST_F(stand_in, checks_the_order_of_the_lines)
{
    ASSERT_TRUE(zet_nox_hal_register(&record));
    EXPECT_REFUSED(stand_in_note_enable(1, true), "sensor 1 is enabled without supply");
    stand_in_note_enable(1, false);
    switch_on(1);
    // Repeated calls have no effect.
    switch_on(1);
    EXPECT_REFUSED(stand_in_note_supply(1, false), "sensor 1 is enabled while its supply is switched off");
    stand_in_note_supply(1, true);
    EXPECT_REFUSED(stand_in_note_enable(2, true), "sensor 2 is enabled without supply");
    switch_off(1);
    switch_off(1);
    switch_on(STAND_IN_SENSOR_COUNT);
    switch_off(STAND_IN_SENSOR_COUNT);
    EXPECT_EQ(stand_in_violations, 3U) << stand_in_last_violation;
    EXPECT_REFUSED(stand_in_note_supply(0, true), "there is no sensor 0");
    EXPECT_REFUSED(stand_in_note_enable(17, true), "there is no sensor 17");
}

TEST_F(stand_in, finds_only_sensors_that_are_on)
{
    ASSERT_TRUE(zet_nox_hal_register(&record));
    const auto expect_refused = [](zet_sensor_id_t sensor_id) {
        EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_connected(sensor_id)), "is not supplied and enabled");
        EXPECT_REFUSED(EXPECT_EQ(zet_sensor_create(sensor_id), nullptr), "is not supplied and enabled");
    };
    expect_refused(1);
    stand_in_note_supply(1, true);
    expect_refused(1);
    stand_in_note_enable(1, true);
    expect_refused(2);
    EXPECT_EQ(board.transfers, 0U);
    EXPECT_TRUE(zet_sensor_connected(1));
    zet_sensor_destroy(zet_sensor_create(1));
    EXPECT_GT(board.transfers, 0U);
    stand_in_note_enable(1, false);
    expect_refused(1);
    stand_in_note_supply(1, false);
    expect_refused(1);
    EXPECT_REFUSED(stand_in_note_enable(1, true), "sensor 1 is enabled without supply");
    expect_refused(1);
}

TEST_F(stand_in, resets_the_lines_when_it_is_reset)
{
    ASSERT_TRUE(zet_nox_hal_register(&record));
    switch_on(1);
    stand_in_reset();
    ASSERT_TRUE(zet_nox_hal_register(&record));
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_connected(1)), "is not supplied and enabled");
}

TEST_F(stand_in, refuses_a_sensor_that_is_not_enabled)
{
    begin();
    ASSERT_TRUE(prepare());
    stand_in_note_enable(1, false);
    const size_t before = board.transfers;
    bool complete = false;
    EXPECT_REFUSED(EXPECT_FALSE(step(&complete)), "sensor 1 is not supplied and enabled");
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "sensor 1 is not supplied and enabled");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "sensor 1 is not prepared");
    EXPECT_REFUSED(EXPECT_FALSE(read()), "sensor 1 is not prepared");
    EXPECT_EQ(board.transfers, before);
    EXPECT_EQ(board.raised.size(), STAND_IN_CALIBRATION_STEPS);
    end();
}

// The server does this after a failed item.
TEST_F(stand_in, fails_without_a_violation_when_a_sensor_was_switched_off)
{
    begin();
    ASSERT_TRUE(prepare());
    switch_off(1);
    const size_t before = board.transfers;
    bool complete = true;
    EXPECT_FALSE(step(&complete));
    EXPECT_FALSE(complete);
    EXPECT_FALSE(prepare());
    EXPECT_FALSE(zet_sensor_prepare(sensor, config, &calibration, nullptr, 0));
    zet_sensor_status(sensor);
    EXPECT_EQ(board.transfers, before);
    EXPECT_EQ(
        board.errors,
        (std::vector<std::string>{
            "zet_sensor_calibrate: sensor 1 is switched off", "zet_sensor_prepare: sensor 1 is switched off",
            "zet_sensor_prepare: sensor 1 is switched off",
            "sensor 1: off, calibration step 0, not prepared, 0 frames measured, 0 not read"}));
    EXPECT_EQ(stand_in_violations, 0U) << stand_in_last_violation;
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "sensor 1 is not prepared");
    switch_on(1);
    ASSERT_TRUE(prepare());
    end();
}

TEST_F(stand_in, needs_a_reset_after_a_calibration)
{
    begin();
    run_calibration();
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "sensor 1 was not reset after its calibration");
    // The sensor is already enabled.
    stand_in_note_enable(1, true);
    stand_in_note_enable(2, false);
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "sensor 1 was not reset after its calibration");
    zet_sensor_destroy(sensor);
    sensor = zet_sensor_create(1);
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "sensor 1 was not reset after its calibration");
    reset(1);
    ASSERT_TRUE(prepare());
    run_calibration();
    switch_off(1);
    switch_on(1);
    ASSERT_TRUE(prepare());
    end();
}

TEST_F(stand_in, needs_a_reset_after_a_failed_calibration)
{
    begin();
    const zet_cal_result_t kept = calibration;
    bool complete = false;
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_calibrate(sensor, &complete, &calibration, nullptr, buffer_size)),
                   "buffer is null");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(sensor, config, &kept, buffer.data(), buffer_size)),
                   "sensor 1 was not reset after its calibration");
    end();
}

TEST_F(stand_in, a_reset_cancels_operations_in_progress)
{
    begin();
    const zet_cal_result_t kept = calibration;
    ASSERT_TRUE(prepare());
    measure();
    reset(1);
    EXPECT_EQ(stand_in_parameters(1), nullptr);
    EXPECT_REFUSED(EXPECT_FALSE(read()), "sensor 1 is not prepared");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "sensor 1 is not prepared");
    bool complete = false;
    ASSERT_TRUE(step(&complete));
    wait();
    reset(1);
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "null, damaged or not complete");
    ASSERT_TRUE(zet_sensor_prepare(sensor, config, &kept, buffer.data(), buffer_size));
    // It starts again with the first step.
    calibrate();
    ASSERT_TRUE(prepare());
    switch_on(2);
    reset(2);
    read_frame();
    end();
}

TEST_F(stand_in, does_not_check_lines_that_it_cannot_watch)
{
    board.shows_lines = false;
    begin();
    switch_off(1);
    EXPECT_TRUE(zet_sensor_connected(1));
    run_calibration();
    ASSERT_TRUE(prepare());
    read_frame();
    EXPECT_EQ(stand_in_violations, 0U) << stand_in_last_violation;
    end();
}

TEST_F(stand_in, detects_every_damaged_word_of_a_calibration)
{
    begin();
    EXPECT_TRUE(zet_sensor_validate_calibration(&calibration));
    zet_cal_info_t info = {};
    EXPECT_TRUE(zet_sensor_get_cal_info(&calibration, &info));
    EXPECT_EQ(info.temperature, STAND_IN_TEMPERATURE);
    for (uint32_t &word : calibration.data)
    {
        word ^= 0x100U;
        EXPECT_FALSE(zet_sensor_validate_calibration(&calibration));
        EXPECT_FALSE(zet_sensor_get_cal_info(&calibration, &info));
        word ^= 0x100U;
    }
    EXPECT_EQ(stand_in_violations, 0U);
    calibration.data[20] ^= 1U;
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "null, damaged or not complete");
    end();
}

TEST_F(stand_in, prepares_only_with_valid_arguments)
{
    begin();
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(sensor, config, nullptr, buffer.data(), buffer_size)),
                   "calibration result is null");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(sensor, config, &calibration, nullptr, buffer_size)),
                   "buffer is null");
    EXPECT_REFUSED(
        EXPECT_FALSE(zet_sensor_prepare(sensor, config, &calibration, buffer.data(), buffer_size - 1)),
        "bytes;");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(sensor, config, &calibration,
                                                   reinterpret_cast<char *>(buffer.data()) + 2, buffer_size)),
                   "not aligned");
    zet_config_subsweep_hwaas_set(config, 512, 0);
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "the configuration is not valid");
    zet_config_subsweep_hwaas_set(config, 511, 0);
    ASSERT_TRUE(prepare());
    switch_on(2);
    zet_sensor_t *const other = zet_sensor_create(2);
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_prepare(other, config, &calibration, buffer.data(), buffer_size)),
                   "sensor 2 is given the calibration of sensor 1");
    zet_sensor_destroy(other);
    end();
}

/** What a probe received, and what it changes. */
struct probe
{
    std::vector<zet_probes_header_t> headers;
    bool answer = true;
    bool is_overrunning = false;
};

bool override_hwaas(const zet_probes_header_t *header, void *data, uint32_t size, void *reference)
{
    auto *seen = static_cast<probe *>(reference);
    seen->headers.push_back(*header);
    auto *block = static_cast<zet_cpd_k330_meas_session_parameters_t *>(data);
    EXPECT_EQ(size, sizeof(*block));
    EXPECT_EQ(block->subsweeps[0].integration_repeats, 8);
    EXPECT_EQ(block->subsweeps[0].point_repeats, 40);
    EXPECT_EQ(block->run_subsweep[0], 1);
    EXPECT_EQ(block->run_subsweep[1], 0);
    EXPECT_EQ(block->sweep_repeats, 3);
    block->subsweeps[0].integration_repeats = 99;
    if (seen->is_overrunning)
    {
        static_cast<uint8_t *>(data)[size] = 1;
    }
    return seen->answer;
}

TEST_F(stand_in, passes_the_parameters_to_the_probe_and_keeps_its_changes)
{
    begin(3);
    probe seen;
    zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, override_hwaas, &seen);
    zet_probes_register_callback(ZET_PROBE_ID_SENSOR_METADATA, nullptr, nullptr);
    EXPECT_EQ(stand_in_parameters(3), nullptr);
    ASSERT_TRUE(prepare());
    ASSERT_EQ(seen.headers.size(), 1U);
    EXPECT_EQ(seen.headers[0].probe_id, ZET_PROBE_ID_MEAS_SESSION_PARAMETERS);
    EXPECT_EQ(seen.headers[0].sensor_id, 3U);
    ASSERT_NE(stand_in_parameters(3), nullptr);
    EXPECT_EQ(stand_in_parameters(3)->subsweeps[0].integration_repeats, 99);
    seen.answer = false;
    EXPECT_FALSE(prepare());
    EXPECT_EQ(stand_in_parameters(3), nullptr);
    EXPECT_EQ(stand_in_violations, 0U);
    seen.answer = true;
    seen.is_overrunning = true;
    EXPECT_REFUSED(EXPECT_FALSE(prepare()), "the probe wrote beyond the parameters");
    zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, nullptr, nullptr);
    ASSERT_TRUE(prepare());
    EXPECT_EQ(seen.headers.size(), 3U);
    EXPECT_EQ(stand_in_parameters(3)->subsweeps[0].integration_repeats, 8);
    end();
}

TEST_F(stand_in, needs_measure_and_read_to_alternate)
{
    begin();
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "sensor 1 is not prepared");
    EXPECT_REFUSED(EXPECT_FALSE(read()), "sensor 1 is not prepared");
    ASSERT_TRUE(prepare());
    EXPECT_REFUSED(EXPECT_FALSE(read()), "sensor 1 has no measured frame");
    ASSERT_TRUE(zet_sensor_measure(sensor));
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "sensor 1 has a frame that was not read");
    EXPECT_REFUSED(EXPECT_FALSE(read()), "the interrupt of sensor 1 was not waited for");
    wait();
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_read(sensor, nullptr, buffer_size)), "buffer is null");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_read(sensor, buffer.data(), buffer_size - 1)), "are needed");
    ASSERT_TRUE(read());
    EXPECT_REFUSED(EXPECT_FALSE(read()), "sensor 1 has no measured frame");
    calibrate();
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "sensor 1 is not prepared");
    end();
}

TEST_F(stand_in, measures_one_frame_ahead_with_double_buffering)
{
    begin();
    zet_config_double_buffering_set(config, true);
    ASSERT_TRUE(prepare());
    measure();
    measure();
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "has a frame that was not read");
    for (uint32_t frame = 0; frame < 2; ++frame)
    {
        ASSERT_TRUE(read());
        zet_processing_execute(processing, buffer.data(), &result);
        expect_frame(frame);
    }
    end();
}

TEST_F(stand_in, needs_the_configuration_until_the_last_measurement)
{
    begin();
    ASSERT_TRUE(prepare());
    measure();
    zet_config_destroy(config);
    EXPECT_EQ(stand_in_violations, 0U);
    EXPECT_REFUSED(EXPECT_FALSE(read()), "the configuration handle is not alive");
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "the configuration handle is not alive");
    config = nullptr;
    end();
}

TEST_F(stand_in, detects_a_new_configuration_at_an_old_address)
{
    begin();
    ASSERT_TRUE(prepare());
    board.is_keeping_spare = true;
    zet_config_destroy(config);
    board.is_keeping_spare = false;
    zet_config_t *const destroyed = std::exchange(config, zet_config_create());
    ASSERT_EQ(config, destroyed);
    EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_measure(sensor)), "the configuration of sensor 1 was destroyed");
    end();
}

TEST_F(stand_in, processes_a_frame_only_once_and_with_its_configuration)
{
    begin();
    EXPECT_REFUSED(zet_processing_execute(processing, nullptr, &result), "buffer is null");
    EXPECT_REFUSED(zet_processing_execute(processing, buffer.data(), &result), "no frame that was just read");
    ASSERT_TRUE(prepare());
    read_frame();
    zet_processing_metadata_t other_metadata = {};
    zet_config_t *const other_config = zet_config_create();
    zet_config_subsweep_num_points_set(other_config, 120, 0);
    zet_processing_t *const other = zet_processing_create(other_config, &other_metadata);
    EXPECT_EQ(other_metadata.frame_data_length, metadata.frame_data_length);
    EXPECT_REFUSED(zet_processing_execute(other, buffer.data(), &result), "another configuration");
    zet_config_subsweep_num_points_set(config, 41, 0);
    zet_processing_t *const later = zet_processing_create(config, &other_metadata);
    EXPECT_REFUSED(zet_processing_execute(later, buffer.data(), &result), "another configuration");
    zet_processing_destroy(later);
    EXPECT_EQ(result.frame, nullptr);
    zet_processing_execute(processing, buffer.data(), &result);
    EXPECT_NE(result.frame, nullptr);
    EXPECT_REFUSED(zet_processing_execute(processing, buffer.data(), &result), "no frame that was just read");
    zet_processing_destroy(other);
    zet_config_destroy(other_config);
    end();
}

TEST_F(stand_in, assesses_the_channel_only_if_enabled)
{
    begin();
    float value = 7.0F;
    ASSERT_TRUE(prepare());
    read_frame();
    EXPECT_REFUSED(EXPECT_FALSE(zet_processing_cca_check(processing, buffer.data(), &value)),
                   "does not enable the clear-channel measurement");
    EXPECT_EQ(value, 7.0F);
    zet_config_enable_cca_set(config, true);
    ASSERT_TRUE(prepare());
    read_frame();
    EXPECT_TRUE(zet_processing_cca_check(processing, buffer.data(), &value));
    EXPECT_EQ(value, STAND_IN_CCA_VALUE);
    zet_processing_execute(processing, buffer.data(), &result);
    EXPECT_REFUSED(EXPECT_FALSE(zet_processing_cca_check(processing, buffer.data(), &value)),
                   "no frame that was just read");
    end();
}

TEST_F(stand_in, transfers_pieces_that_are_not_too_long_for_the_board)
{
    for (const uint16_t longest : {uint16_t{1}, uint16_t{2}, uint16_t{7}, uint16_t{64}, uint16_t{UINT16_MAX}})
    {
        board = {};
        stand_in_reset();
        record.max_spi_transfer_size = longest;
        begin();
        ASSERT_TRUE(prepare());
        measure();
        board.sent.clear();
        ASSERT_TRUE(read());
        EXPECT_EQ(board.sent, std::vector<uint8_t>(480, 0x5A));
        EXPECT_LE(board.longest, longest);
        EXPECT_EQ(board.word_transfers, 0U);
        end();
        EXPECT_EQ(stand_in_violations, 0U) << stand_in_last_violation;
    }
}

TEST_F(stand_in, transfers_words_if_the_board_supports_it)
{
    record.optimization.transfer16 = transfer16;
    begin();
    ASSERT_TRUE(prepare());
    read_frame();
    EXPECT_GT(board.word_transfers, 0U);
    EXPECT_EQ(board.transfers, 0U);
    EXPECT_EQ(board.longest, 64U);
    record.max_spi_transfer_size = 1;
    ASSERT_TRUE(zet_nox_hal_register(&record));
    EXPECT_TRUE(zet_sensor_connected(1));
    EXPECT_EQ(board.transfers, 16U);
    end();
}

TEST_F(stand_in, transfers_bytes_in_every_operation_of_a_sensor)
{
    begin();
    size_t before = 0;
    const auto exchanged = [&] { return board.transfers > std::exchange(before, board.transfers); };
    EXPECT_TRUE(exchanged());
    EXPECT_TRUE(zet_sensor_connected(1));
    EXPECT_TRUE(exchanged());
    EXPECT_TRUE(prepare());
    EXPECT_TRUE(exchanged());
    measure();
    EXPECT_TRUE(exchanged());
    EXPECT_TRUE(read());
    EXPECT_TRUE(exchanged());
    zet_sensor_status(sensor);
    EXPECT_TRUE(exchanged());
    bool complete = false;
    EXPECT_TRUE(step(&complete));
    EXPECT_TRUE(exchanged());
    zet_sensor_destroy(sensor);
    sensor = zet_sensor_create(1);
    EXPECT_TRUE(exchanged());
    end();
}

TEST_F(stand_in, detects_transfers_that_write_outside_of_their_buffer)
{
    begin();
    ASSERT_TRUE(prepare());
    measure();
    board.is_overrunning = true;
    for (const int offset : {-8, -1, 0, 7})
    {
        board.overrun = offset;
        EXPECT_REFUSED(EXPECT_FALSE(read()), "the transfer of 64 bytes wrote outside of its buffer");
        EXPECT_REFUSED(EXPECT_FALSE(zet_sensor_connected(1)), "the transfer of 16 bytes");
        EXPECT_REFUSED(EXPECT_FALSE(prepare()), "wrote outside of its buffer");
        board.is_overrunning = false;
        ASSERT_TRUE(prepare());
        measure();
        board.is_overrunning = true;
    }
    board.is_overrunning = false;
    ASSERT_TRUE(read());
    end();
}

TEST_F(stand_in, handles_out_of_memory)
{
    begin();
    switch_on(2);
    board.is_memory_exhausted = true;
    EXPECT_EQ(zet_config_create(), nullptr);
    EXPECT_EQ(zet_sensor_create(2), nullptr);
    EXPECT_EQ(zet_processing_create(config, &metadata), nullptr);
    EXPECT_EQ(board.errors.size(), 3U);
    EXPECT_EQ(stand_in_violations, 0U);
    board.is_memory_exhausted = false;
    end();
    board.is_memory_misaligned = true;
    EXPECT_REFUSED(EXPECT_EQ(zet_config_create(), nullptr), "not aligned");
    EXPECT_EQ(board.live, 0U);
}

TEST_F(stand_in, logs_according_to_level_and_diagnostic_log)
{
    begin();
    calibration = {};
    EXPECT_FALSE(zet_sensor_validate_calibration(&calibration));
    EXPECT_TRUE(board.lines.empty());
    zet_nox_set_log_level(ZET_LOG_LEVEL_WARNING);
    EXPECT_FALSE(zet_sensor_validate_calibration(&calibration));
    EXPECT_EQ(board.lines.size(), 1U);
    zet_diagnostic_log_enable(true);
    calibrate();
    EXPECT_EQ(board.lines.size(), 1U + STAND_IN_CALIBRATION_STEPS);
    zet_diagnostic_log_enable(false);
    calibrate();
    EXPECT_EQ(board.lines.size(), 1U + STAND_IN_CALIBRATION_STEPS);
    end();
}

} // namespace

void stand_in_raise_interrupt(zet_sensor_id_t sensor_id)
{
    board.raised.push_back(sensor_id);
    board.pending.insert(sensor_id);
}

bool stand_in_sees_lines()
{
    return board.shows_lines;
}

bool stand_in_interrupt_is_pending(zet_sensor_id_t sensor_id)
{
    return board.pending.contains(sensor_id);
}
