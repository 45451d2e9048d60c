/** @file
 * Reads the truth that a simulated server writes, while it writes it.
 */
#ifndef VANTOR_TRUTH_FILE_H
#define VANTOR_TRUTH_FILE_H

#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "vantor/truth.h"

namespace vantor
{

class input_file;

/**
 * The truth file of a simulated server, `vantor_server --truth FILE`: a line for each session, and one for
 * each frame of a sensor. Lines are found by session, sensor and tick. Lines of other sessions and damaged
 * ones are left out. Memory does not grow with the file.
 */
class truth_file
{
public:
    /** @param path  the file that a server on this machine writes */
    explicit truth_file(std::filesystem::path path);
    truth_file(const truth_file &) = delete;
    truth_file &operator=(const truth_file &) = delete;
    truth_file(truth_file &&) = delete;
    truth_file &operator=(truth_file &&) = delete;
    virtual ~truth_file();

    /** The path for the server. */
    [[nodiscard]] const std::filesystem::path &path() const noexcept
    {
        return path_;
    }

    /**
     * Notes where the file ends now. Must be called before the server is configured: its session is the one
     * that is added from here on.
     */
    void expect_session();

    /**
     * Begins the session that was added since expect_session(), and of which no frame was measured.
     *
     * @param sensors  numbers of its sensors
     * @return scene, seed, clock and sensors of the simulator, as session_description::truth
     * @throws bad_recording if the file cannot be read, or not exactly one session was added
     */
    nlohmann::json begin_session(std::set<unsigned> sensors);

    /** Ends the session: nothing is found until the next one. */
    void end_session() noexcept;

    /**
     * Finds what a sensor should have found. Must be called in the order in which a sensor measured: what was
     * measured before is forgotten. The frames of a sensor must be less than 2^31 ticks apart.
     *
     * @param sensor_id  number of the sensor
     * @param tick       of the frame
     * @return the truth, or nothing if the file does not have it
     */
    std::optional<item_truth> find(unsigned sensor_id, uint32_t tick);

    /** How often find() has found nothing. */
    [[nodiscard]] uint64_t missing() const noexcept
    {
        return missing_;
    }

    /** Number of lines that were not understood. */
    [[nodiscard]] uint64_t damaged() const noexcept
    {
        return damaged_;
    }

protected:
    /** Called when all bytes before a position of the file have been read. */
    virtual void forget_before(uint64_t /*position*/)
    {
    }

private:
    nlohmann::json read_session();
    bool read_line();
    bool fill();
    std::optional<std::string> take_line();
    void take_row(const std::string &line);

    std::filesystem::path path_;
    std::unique_ptr<const input_file> file_;          /**< null without a session */
    std::string fault_;                               /**< why an expected file is missing */
    uint64_t position_ = 0;                           /**< of the bytes after those in the buffer */
    std::string buffer_;                              /**< bytes that are not a complete line yet */
    bool skipping_ = false;                           /**< until the end of a line that is too long */
    std::string id_;                                  /**< of the session */
    std::set<unsigned> sensors_;                      /**< of the session */
    std::map<unsigned, std::deque<item_truth>> rows_; /**< of each sensor: those not asked for yet */
    uint64_t missing_ = 0;
    uint64_t damaged_ = 0;
};

/** The truth file of a private simulated server: in memory, and only as long as this object lives. */
class private_truth_file : public truth_file
{
public:
    /** @throws connect_error if the file cannot be created */
    private_truth_file();
    private_truth_file(const private_truth_file &) = delete;
    private_truth_file &operator=(const private_truth_file &) = delete;
    private_truth_file(private_truth_file &&) = delete;
    private_truth_file &operator=(private_truth_file &&) = delete;
    ~private_truth_file() override;

protected:
    /** Returns the memory of what has been read. */
    void forget_before(uint64_t position) override;

private:
    explicit private_truth_file(int descriptor);

    int descriptor_;
    uint64_t forgotten_ = 0; /**< bytes whose memory was returned */
};

} // namespace vantor

#endif
