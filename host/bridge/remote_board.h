/** @file
 * A board behind a message broker.
 */
#ifndef VANTOR_REMOTE_BOARD_H
#define VANTOR_REMOTE_BOARD_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "bridge/batch.h"
#include "bridge/batch_order.h"
#include "bridge/frame_queue.h"
#include "bridge/nats_reader.h"
#include "replay/served_stream.h"
#include "vantor/event_loop.h"

namespace vantor
{

/** The frames of a board behind a message broker, session after session. */
class remote_board : public served_stream
{
public:
    /** Tells the user what is missing. */
    using reporter = std::function<void(const std::string &line)>;

    /**
     * Connects to the broker, and waits until a batch describes the session.
     *
     * @param where     the board
     * @param security  what proves who is who
     * @param loop      waits for frames; must outlive this object
     * @param report    what to do with lines for the user
     * @throws broker_error if the broker cannot be reached, or has no frames of the board
     * @throws cancelled if waiting was cancelled
     */
    remote_board(remote_board_address where, const broker_security &security, event_loop &loop,
                 reporter report);

    [[nodiscard]] nlohmann::ordered_json identity() const override;
    [[nodiscard]] const nlohmann::json &configuration() const override;
    [[nodiscard]] const nlohmann::json &metadata() const override;

    /** Goes on with the next frame, also if it belongs to another session. */
    void begin() override;
    void start() override;
    std::optional<std::string> take_due() override;
    std::optional<std::string> take_next() override;
    [[nodiscard]] event_loop::time_point::duration time_until_due() override;
    void note_sent(uint64_t end) override;
    [[nodiscard]] bool has_ended() override;

    /** Gives the frames again that a host was sent and has not read. @param read  how many bytes hosts have
     * read */
    void put_back_unread(uint64_t read);

private:
    void fill();
    void add(const stored_batch &stored);
    void describe(const batch_header &header, bool begins);
    [[nodiscard]] bool is_wanted(const batch_header &header, const stored_batch &stored) const;
    void note_loss(const batch_order::verdict &found);

    remote_board_address where_;
    reporter report_;
    event_loop &loop_;
    nats_reader reader_;
    batch_order order_;
    frame_queue ready_;
    std::shared_ptr<const batch_session> session_; /**< of what can be taken */
    std::string session_name_;
    std::shared_ptr<const batch_session> described_; /**< of the batches that arrive; null if not known */
    std::string described_name_;
    std::map<std::string, std::shared_ptr<const batch_session>> known_; /**< by the names of sessions */
    std::string fault_; /**< of the broker, as reported last */
    uint64_t lost_ = 0; /**< frames between bridge and here, in the session that arrives */
};

} // namespace vantor

#endif
