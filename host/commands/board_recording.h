/** @file
 * Records one board.
 */
#ifndef VANTOR_BOARD_RECORDING_H
#define VANTOR_BOARD_RECORDING_H

#include <cstddef>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "commands/record.h"
#include "commands/recording_report.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"
#include "vantor/frame_tally.h"
#include "vantor/hub.h"
#include "vantor/recording_sink.h"
#include "vantor/recording_writer.h"
#include "vantor/session_source.h"
#include "vantor/truth_file.h"

namespace vantor
{

/** The message for a server that needs a configuration. */
inline constexpr const char *configuration_missing =
    "CONFIG is missing: give a configuration document. Only \"vantor replay\" needs none.";

/** A board that is recorded, and how to reach it. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct board_source
{
    std::filesystem::path file;      /**< of the configuration; empty for that of a replayed recording */
    nlohmann::json configuration;    /**< content of the file, with calibrations; null if there is none */
    std::string address;             /**< as given */
    client::link_factory open_links; /**< opens a link to its server */
    truth_file *truth = nullptr;     /**< of the server; null if there is none */
};

/** The recording of one board. The functions are to be called in this order, if the ones before succeed. */
class board_recording
{
public:
    /** @param options  must outlive this object; @param loop  of the links */
    board_recording(const record_options &options, board_source source, std::shared_ptr<event_loop> loop);

    /**
     * Connects, and sets up the session.
     *
     * @throws usage_error, configuration_error and the exceptions of the client
     */
    void set_up();

    /** The most files that it has open at the same time, after set_up(). */
    [[nodiscard]] size_t open_files() const;

    /**
     * Creates the files.
     *
     * @throws recording_error if this is not possible
     */
    void create_files(const std::filesystem::path &directory);

    /** Records until a limit is reached. @param stop  see stream_limits */
    void run(const std::function<bool()> &stop);

    /**
     * Waits until everything is on the disk, and writes the final documents. Can be called from another
     * thread while others ask has_failed().
     *
     * @return why that failed; null if it did not
     */
    [[nodiscard]] std::exception_ptr complete_files();

    /** Notes why it failed, if it has not failed before. @param failure  null if there was none */
    void note(const std::exception_ptr &failure);

    /** Why it failed; null if it did not. For a failure of its files, with what is left of them. */
    [[nodiscard]] std::exception_ptr failure() const;

    /** Whether it failed. */
    [[nodiscard]] bool has_failed() const noexcept
    {
        return failure_ != nullptr;
    }

    /** The parts, after complete_files(). Valid as long as this object. */
    [[nodiscard]] finished_recording result() const;

    /** What a person should know while it is recorded: ", 4 missing, 3 saturated"; empty if all is well. */
    [[nodiscard]] std::string warnings() const;

    /** Frames received so far. */
    [[nodiscard]] uint64_t frames() const
    {
        return stream_->frames();
    }

    /** Whether waiting was cancelled. */
    [[nodiscard]] bool interrupted() const
    {
        return stream_->interrupted();
    }

    /** The address, as given. */
    [[nodiscard]] const std::string &address_text() const noexcept
    {
        return source_.address;
    }

    /** What the server reports about itself. */
    [[nodiscard]] const server_info &server() const
    {
        return server_->server();
    }

    /** The files. */
    [[nodiscard]] const recording_writer &writer() const
    {
        return *writer_;
    }

private:
    const record_options &options_;
    board_source source_;
    std::shared_ptr<event_loop> loop_;
    std::optional<client> server_;
    std::optional<session_source> session_;
    std::optional<recording_writer> writer_;
    std::optional<recording_sink> recorder_;
    frame_tally tally_;
    std::optional<hub> stream_;
    std::exception_ptr failure_;
    bool finished_ = false; /**< the final documents are written */
};

} // namespace vantor

#endif
