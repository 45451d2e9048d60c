/** @file
 * Batches: frames of one board on their way through a message broker.
 *
 * A batch is one line with a JSON object, followed by the frame messages of docs/protocol.md, as
 * docs/fleet.md describes.
 */
#ifndef VANTOR_BATCH_H
#define VANTOR_BATCH_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/errors.h"
#include "vantor/utc_time.h"

namespace vantor
{

/** Bytes are not a batch. */
class bad_batch : public error
{
public:
    using error::error;
};

/** What a consumer must know of a session to use its frames. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct batch_session
{
    nlohmann::ordered_json server; /**< what the server reported about itself: members of "identify" */
    nlohmann::json configuration;  /**< the configuration document */
    nlohmann::json metadata;       /**< the answer of the server to it */
};

/** The first line of a batch. */
struct batch_header
{
    std::string site;            /**< where the board is */
    std::string board;           /**< name of the board at its site */
    std::string session;         /**< tells sessions of the board apart */
    uint64_t number = 0;         /**< of the batch in its session, from 0 */
    uint64_t first = 0;          /**< frames of the session that precede this batch */
    uint64_t frames = 0;         /**< in this batch; 0 only in the last one of a session */
    uint64_t missing = 0;        /**< frames of the session, up to the last one of this batch,
                                    that were lost before they reached the bridge */
    std::optional<utc_time> utc; /**< of the first frame; no value if it is not known */
    std::shared_ptr<const batch_session> content; /**< null if an earlier batch of the session had it */
    std::optional<std::string> end;               /**< in the last batch of a session: why it has ended */
};

/** A batch that was decoded. */
struct batch
{
    batch_header header;
    std::vector<std::string_view> messages; /**< one for each frame: a part of the bytes that were decoded */
};

/** Largest batch of a consumer, in bytes: more than brokers carry. */
inline constexpr size_t largest_batch = size_t{64} << 20U;

/** Whether a text can be the name of a site or a board: 1 to 64 letters, digits, "-" and "_". */
bool is_batch_name(std::string_view text) noexcept;

/** A text as the name of a board: other characters become "-"; "board" if it is empty. */
std::string to_batch_name(std::string_view text);

/**
 * Reads a member that is the name of a site or a board.
 *
 * @throws bad_batch if it is not one, protocol_error if it is missing or is not a string
 */
std::string name_member(const nlohmann::json &document, const char *name);

/**
 * Encodes a batch.
 *
 * @param header    its first line
 * @param messages  as many frame messages as it announces, one after the other
 */
std::string encode_batch(const batch_header &header, std::string_view messages);

/** Names a batch: no other batch of any bridge has the same name. Brokers recognise repeated batches by it.
 */
std::string batch_id(const batch_header &header);

/**
 * Decodes the first line of a batch.
 *
 * @throws bad_batch if it is not one
 */
batch_header decode_batch_header(std::string_view bytes);

/**
 * Decodes a batch.
 *
 * @param bytes  as they were received; must outlive the result
 * @throws bad_batch if they are not a batch
 */
batch decode_batch(std::string_view bytes);

} // namespace vantor

#endif
