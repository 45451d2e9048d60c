"""Boards and choices that end the configuration, with a message that names what is wrong."""

import pathlib
import tempfile
import unittest

from board_folders import BoardFolder, configure


class Refused(unittest.TestCase):
    """What cannot be built."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)

    def check_refused(self, board, *texts, options=("-DVANTOR_SENSORS=simulator",)):
        """Configures a board, or none when it is empty: it ends with a message."""
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

    def test_name_that_cannot_be_a_name_of_an_image(self):
        self.check_refused(BoardFolder(self.folder, "my board"), '"my board" names the image', "use letters")

    def test_unknown_sensors(self):
        self.check_refused("template", 'VANTOR_SENSORS is "real"; use simulator or library.',
                           options=("-DVANTOR_SENSORS=real",))

    def test_library_without_a_file(self):
        for file in ("", str(self.folder / "absent.a"), str(self.folder)):
            self.check_refused("template", "add -DVANTOR_SENSOR_LIBRARY=FILE", f'(now "{file}")',
                               options=("-DVANTOR_SENSORS=library", f"-DVANTOR_SENSOR_LIBRARY={file}"))


if __name__ == "__main__":
    unittest.main()
