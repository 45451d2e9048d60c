/** @file
 * The recordings at a place: one, or those of several boards.
 */
#include "commands/each_board.h"

#include "vantor/board_collection.h"

namespace vantor
{

std::vector<board_place> recordings_at(const std::filesystem::path &place)
{
    if (!board_collection::is_at(place))
    {
        return {{.recording = place, .board = {}}};
    }
    const auto collection = board_collection::read(place);
    std::vector<board_place> places;
    for (size_t i = 0; i < collection.boards().size(); ++i)
    {
        places.push_back(
            {.recording = collection.directory_of(i), .board = collection.boards()[i].directory});
    }
    return places;
}

} // namespace vantor
