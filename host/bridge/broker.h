/** @file
 * Where a bridge puts its batches.
 */
#ifndef VANTOR_BROKER_H
#define VANTOR_BROKER_H

#include <cstddef>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include "vantor/errors.h"
#include "vantor/event_loop.h"

namespace vantor
{

/** A message broker cannot be used. */
class broker_error : public connect_error
{
public:
    using connect_error::connect_error;
};

/** What proves to each other who broker and bridge are; empty where nothing is needed. */
struct broker_security
{
    std::filesystem::path authorities; /**< certificates of those that may vouch for the broker: uses TLS */
    std::filesystem::path certificate; /**< of this program */
    std::filesystem::path key;         /**< of this program */
    std::filesystem::path credentials; /**< of the user */
};

/** A batch on its way to a broker. */
struct outgoing_batch
{
    std::string board;
    std::string id; /**< see batch_id() */
    std::string bytes;
};

/**
 * A message broker. Functions are called on the thread of the loop and do not wait; what they are given is
 * called by work of the loop.
 */
class broker
{
public:
    broker() = default;
    broker(const broker &) = delete;
    broker &operator=(const broker &) = delete;
    broker(broker &&) = delete;
    broker &operator=(broker &&) = delete;
    virtual ~broker() = default;

    /** Whether batches can be published now. */
    [[nodiscard]] virtual bool ready() const = 0;

    /** The fault() of a broker that has not tried yet to connect. */
    static constexpr const char *not_tried = "not connected yet";

    /** Why batches cannot be published, or why the last one was refused; empty if all is well. */
    [[nodiscard]] virtual std::string fault() const = 0;

    /** Largest batch that the broker takes, in bytes. */
    [[nodiscard]] virtual size_t largest() const
    {
        return std::numeric_limits<size_t>::max();
    }

    /** Settings of the broker that decide what largest() returns. */
    [[nodiscard]] virtual std::string limit_names() const = 0;

    /**
     * Publishes a batch.
     *
     * @param done  called once, unless this object is destroyed: whether the broker has stored the batch. If
     *              not, or if that is not known, the batch is to be published again.
     */
    virtual void publish(outgoing_batch sent, std::function<void(bool stored)> done) = 0;

    /** Publishes the state of a board, which replaces the former one. It is lost if the broker is away. */
    virtual void publish_state(const std::string &board, std::string state) = 0;

    /** Gives up batches to which the broker has not answered in time. To be called now and then. */
    virtual void check() = 0;
};

} // namespace vantor

#endif
