/** @file
 * What a bridge has passed on.
 */
#include "stored_batches.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace vantor::test
{

std::vector<batch> stored_batches(const fake_broker &target, const std::string &board)
{
    std::vector<batch> found;
    for (const auto &sent : target.stored)
    {
        if (sent.board == board)
        {
            found.push_back(decode_batch(sent.bytes));
            EXPECT_EQ(found.back().header.board, board);
            EXPECT_EQ(sent.id, batch_id(found.back().header));
        }
    }
    return found;
}

std::vector<batch> stored_session(const fake_broker &target, const std::string &board, size_t session)
{
    std::vector<std::string> names;
    std::vector<batch> found;
    for (auto &stored : stored_batches(target, board))
    {
        const auto &name = stored.header.session;
        if (names.empty() || names.back() != name)
        {
            EXPECT_EQ(std::count(names.begin(), names.end(), name), 0);
            names.push_back(name);
        }
        if (names.size() == session + 1)
        {
            EXPECT_EQ(stored.header.number, found.size());
            EXPECT_EQ(stored.header.first, frames_in(found));
            found.push_back(std::move(stored));
        }
    }
    return found;
}

uint64_t frames_in(const std::vector<batch> &batches)
{
    uint64_t frames = 0;
    for (const auto &one : batches)
    {
        frames += one.messages.size();
    }
    return frames;
}

reaction identify_as(const std::string &name, const std::string &id)
{
    return [name, id](host_connection &host, const nlohmann::json &) {
        auto answer = identity();
        auto board = nlohmann::json::object();
        if (!name.empty())
        {
            board["name"] = name;
        }
        if (!id.empty())
        {
            board["id"] = id;
        }
        answer["board"] = board;
        host.send(answer, "");
    };
}

reaction lose_link_after(uint32_t frames)
{
    return [frames](host_connection &host, const nlohmann::json &command) {
        stream_frames(frames)(host, command);
        host.close();
    };
}

} // namespace vantor::test
