"""Boards and options that the configuration must refuse with a message about the error."""

import pathlib
import tempfile
import unittest

from board_folders import BoardFolder, configure


class Refused(unittest.TestCase):
    """Boards and options that cannot be built."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)

    def check_refused(self, board, *texts, options=("-DVANTOR_SENSORS=simulator", "-DVANTOR_SENSOR_LIBRARY=")):
        """Configures a board, or none if it is empty. The configuration must end with a message."""
        process = configure(self.folder / "build", [board], *options)
        self.assertNotEqual(process.returncode, 0)
        message = " ".join(process.stdout.split())
        for text in texts:
            self.assertIn(text, message)

    def test_folder_without_a_file(self):
        for file in ("board_numbers.h", "memory.ld"):
            board = BoardFolder(self.folder, "lacking_" + file.partition(".")[0])
            (board.path / file).unlink()
            self.check_refused(board, f"The board {board.path} has no file {file}")

    def test_unknown_board(self):
        self.check_refused("netduino", 'VANTOR_BOARD is "netduino"', "boards mps2_an386, netduinoplus2, template")
        self.check_refused(self.folder / "absent", f'VANTOR_BOARD is "{self.folder}/absent"')

    def test_no_board(self):
        self.check_refused("", "VANTOR_BOARD is empty; name a board, such as boards/template.")

    def test_name_that_cannot_name_an_image(self):
        self.check_refused(BoardFolder(self.folder, "my board"), '"my board" names the image', "use letters")

    def test_unknown_sensors(self):
        self.check_refused("template", 'VANTOR_SENSORS is "real"; use simulator or library.',
                           options=("-DVANTOR_SENSORS=real",))

    def test_library_without_a_file(self):
        self.check_refused("template", "VANTOR_SENSORS=library needs the manufacturer's sensor library",
                           "add -DVANTOR_SENSOR_LIBRARY=FILE.",
                           options=("-DVANTOR_SENSORS=library", "-DVANTOR_SENSOR_LIBRARY="))
        for file in (self.folder / "absent.a", self.folder):
            self.check_refused("template", f'VANTOR_SENSOR_LIBRARY is "{file}", which does not exist or is a folder.',
                               options=("-DVANTOR_SENSORS=library", f"-DVANTOR_SENSOR_LIBRARY={file}"))

    def test_library_together_with_simulated_sensors(self):
        library = self.folder / "library.a"
        library.touch()
        self.check_refused("template", f'VANTOR_SENSOR_LIBRARY is "{library}", but the sensors are simulated',
                           options=("-DVANTOR_SENSORS=simulator", f"-DVANTOR_SENSOR_LIBRARY={library}"))

    def test_names_that_are_in_use(self):
        same, other = (BoardFolder(self.folder / parent, "same") for parent in ("one", "two"))
        for boards, name in (("template;template", "template"), (f"{same.path};{other.path}", "same"),
                             (BoardFolder(self.folder, "memory"), "memory"),
                             (f"{BoardFolder(self.folder, 'x').path};{BoardFolder(self.folder, 'x_objects').path}",
                              "x_objects")):
            self.check_refused(boards, f"The name {name} of the board ", "name each board once")

    def test_lists_with_an_empty_name(self):
        for boards in (";", "template;", ";template"):
            self.check_refused(boards, f'VANTOR_BOARD is "{boards}"; one of the names between the semicolons is empty.')

    def test_folders_that_are_not_boards(self):
        self.check_refused(".", "has no file board_numbers.h")
        board = BoardFolder(self.folder, "with_folder")
        (board.path / "memory.ld").unlink()
        (board.path / "memory.ld").mkdir()
        self.check_refused(board, f"The board {board.path} has no file memory.ld")

    def test_paths_with_unsupported_characters(self):
        for parent in ("a[b", "a]b", "a$b"):
            board = BoardFolder(self.folder / parent, "board")
            self.check_refused(board, "the path of a board must not contain [, ] or $.")

    def test_accepted_boards_are_listed(self):
        process = configure(self.folder / "build", ["template", "mps2_an386"], "-DVANTOR_SENSORS=simulator",
                            "-DVANTOR_SENSOR_LIBRARY=")
        self.assertEqual(process.returncode, 0, process.stdout)
        self.assertRegex(process.stdout, "\n-- Boards: template, mps2_an386\n-- Sensors: simulator\n")


if __name__ == "__main__":
    unittest.main()
