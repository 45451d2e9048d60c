/** @file
 * The document of a recording of several boards: `boards.sigmf-collection`.
 */
#ifndef VANTOR_BOARD_COLLECTION_H
#define VANTOR_BOARD_COLLECTION_H

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "vantor/collection_stream.h"

namespace vantor
{

/** File name of the document. */
inline constexpr const char *board_collection_file = "boards.sigmf-collection";

/** Most boards of a recording. */
inline constexpr size_t most_recorded_boards = 1024;

/** A board of a recording of several boards. */
struct recorded_board
{
    /** Name of the directory with its recording, in that of the document; different for each board. */
    std::string directory;
    std::optional<std::string> name = {};    /**< as the server reports it */
    std::optional<std::string> id = {};      /**< as the server reports it */
    std::optional<std::string> address = {}; /**< of the server; missing if it is not known any more */
    /** Its items, when the document was written; the names are those in its own collection. */
    std::vector<collection_stream> streams = {};
};

/**
 * Names the directories of boards: the name and the id of each in lower case, with a hyphen for everything
 * else than letters and digits, or "board" if nothing is left. The later ones with the same name get "-2",
 * "-3" and so on.
 */
void name_directories(std::vector<recorded_board> &boards);

/**
 * The list of the boards of a recording, in a directory with a complete recording of each board. Documents
 * come from anywhere: one is only accepted if all recordings are in its directory.
 */
class board_collection
{
public:
    /**
     * Whether a path is such a document, or a directory that contains one, or from which it is missing: one
     * that is not a recording itself, but has recordings in its directories.
     */
    static bool is_at(const std::filesystem::path &place);

    /**
     * Reads the document.
     *
     * @param place  the document, or its directory
     * @throws damaged_recording if it is missing, is not what `vantor record` writes, or names a directory
     * that is not directly in its own one: rebuild() can help
     * @throws bad_recording if it cannot be read, or a directory is a symbolic link; one may be missing
     */
    static board_collection read(const std::filesystem::path &place);

    /**
     * Lists the recordings in a directory again, by their own documents; nothing is written yet.
     *
     * @param place  the document, or its directory
     * @throws damaged_recording if no directory contains a recording
     */
    static board_collection rebuild(const std::filesystem::path &place);

    /**
     * Describes a recording; nothing is written yet.
     *
     * @param directory  with the document and the directories of the boards
     * @throws bad_recording if there are no boards, too many, or their directories are not valid
     */
    board_collection(std::filesystem::path directory, std::vector<recorded_board> boards);

    /** The directory with the document. */
    [[nodiscard]] const std::filesystem::path &directory() const noexcept
    {
        return directory_;
    }

    /** The boards. */
    [[nodiscard]] const std::vector<recorded_board> &boards() const noexcept
    {
        return boards_;
    }

    /** The directory with the recording of a board. @param index  of the board */
    [[nodiscard]] std::filesystem::path directory_of(size_t index) const;

    /** Sets the items of a board. @param index  of the board */
    void set_streams(size_t index, std::vector<collection_stream> streams);

    /**
     * Compares the metadata of the items with the list. While a board is recorded, and if the program was
     * killed then, they can differ.
     *
     * @return the paths of those that cannot be read or have another digest, within the directory
     */
    [[nodiscard]] std::vector<std::filesystem::path> changed_documents() const;

    /**
     * Creates the directory for the document, which may exist already if it is empty.
     *
     * @throws recording_error if it cannot be created or is not empty
     */
    void create_directory() const;

    /**
     * Writes the document; replaces an older one atomically and durably.
     *
     * @throws recording_error if it cannot be written
     */
    void write() const;

private:
    std::filesystem::path directory_;
    std::vector<recorded_board> boards_;
};

} // namespace vantor

#endif
