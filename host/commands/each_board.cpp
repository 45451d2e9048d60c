/** @file
 * The recordings at a place: one, or those of several boards.
 */
#include "commands/each_board.h"

#include <exception>

#include "commands/failure_report.h"
#include "commands/interrupt.h"
#include "plot/drawing_stopped.h"
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

exit_code for_each_recording(const std::vector<board_place> &places, std::ostream &err,
                             const std::function<void(const board_place &)> &work)
{
    auto result = exit_code::success;
    for (const auto &place : places)
    {
        try
        {
            work(place);
        }
        catch (const interruption &)
        {
            throw;
        }
        catch (const drawing_stopped &)
        {
            throw;
        }
        catch (const std::exception &)
        {
            if (place.board.empty())
            {
                throw;
            }
            const auto code = report_failure(err, std::current_exception(), place.board.string());
            result = result == exit_code::success ? code : result;
        }
    }
    return result;
}

} // namespace vantor
