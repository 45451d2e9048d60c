"""Input from a confused or hostile host, over TCP and over a serial device."""

import json
import unittest

from vantor_process import Server, example


class BadInput:
    """Each test sends wrong input and then checks that the server still works. Runs over each kind of link."""

    link = ()

    @classmethod
    def setUpClass(cls):
        cls.server = Server(*cls.link, "--clock", "virtual")

    @classmethod
    def tearDownClass(cls):
        cls.server.__exit__()

    def setUp(self):
        self.host = self.enterContext(self.server.connect())

    def refused(self, data, code):
        """Sends bytes, which must be refused with an error code, and then runs a complete session."""
        self.host.send(data)
        answer = self.host.message()[0]
        self.assertEqual((answer["status"], answer["code"], answer["payload_size"]), ("error", code, 0))
        self.assertTrue(answer["message"].endswith("."), answer["message"])
        self.works()

    def works(self):
        """Expects a session from configuration to frame to succeed."""
        self.assertEqual(self.host.ask("configure", configuration=example("single_sensor.json"))["status"], "ok")
        self.host.command("frame")
        self.assertIn("result_info", self.host.message()[0])
        self.assertEqual(self.host.ask("end")["status"], "ok")

    def test_stray_bytes_before_the_first_command(self):
        self.refused(b"\x00\xff\xfe~~ \x01\n", "bad_json")

    def test_stray_bytes_on_the_line_of_the_first_command(self):
        self.refused(b'\x80\x80{"command":"ping"}\n', "bad_json")

    def test_empty_lines_are_ignored(self):
        self.host.send(b"\n\r\n\n")
        self.works()

    def test_not_json(self):
        self.refused(b"configure please\n", "bad_json")

    def test_truncated_json(self):
        self.refused(b'{"command":"configure","configuration":{"groups":[[{\n', "bad_json")

    def test_two_documents_on_a_line(self):
        self.refused(b'{"command":"ping"}{"command":"ping"}\n', "trailing_text")

    def test_a_line_of_a_hundred_kilobytes(self):
        self.refused(b'{"command":"' + b"x" * 100_000 + b'"}\n', "line_too_long")

    def test_two_thousand_nested_brackets(self):
        self.refused(b"[" * 2000 + b"]" * 2000 + b"\n", "nesting_too_deep")

    def test_many_values(self):
        self.refused(b'{"command":"ping","x":[' + b",".join([b"1"] * 30_000) + b"]}\n", "too_many_values")

    def test_a_number_beyond_every_range(self):
        self.refused(b'{"command":"configure","configuration":{"update_rate":1e400}}\n',
                     "config_faulty_update_rate")
        self.refused(b'{"command":"configure","configuration":{"groups":[[{"sensor_id":1,'
                     b'"config":{"frame_rate":1e400}}]]}}\n', "bad_config")

    def test_no_command(self):
        self.refused(b'{"comand":"ping"}\n', "bad_command")
        self.refused(b"[1,2,3]\n", "bad_command")

    def test_unknown_command(self):
        self.refused(b'{"command":"explode"}\n', "unknown_command")

    def test_unknown_argument(self):
        self.refused(b'{"command":"ping","loud":true}\n', "bad_argument")

    def test_start_before_configure(self):
        self.refused(b'{"command":"start"}\n', "wrong_state")

    def test_frame_before_configure(self):
        self.refused(b'{"command":"frame"}\n', "wrong_state")

    def test_stop_before_start(self):
        self.refused(b'{"command":"stop"}\n', "wrong_state")

    def test_two_configure_in_a_row(self):
        configuration = example("single_sensor.json")
        self.assertEqual(self.host.ask("configure", configuration=configuration)["status"], "ok")
        self.assertEqual(self.host.ask("configure", configuration=configuration)["code"], "wrong_state")
        self.assertEqual(self.host.ask("end")["status"], "ok")
        self.works()

    def test_configure_without_configuration(self):
        self.refused(b'{"command":"configure"}\n', "bad_argument")

    def test_a_configuration_refused_without_a_message(self):
        self.refused(b'{"command":"configure","configuration":{"groups":[[]]}}\n', "configuration_refused")

    def test_every_configuration_error_has_its_code(self):
        item = {"sensor_id": 1, "config": {}}
        faults = {
            "config_faulty_log_settings": {"enable_log": "warning"},
            "config_calibration_list": {"calibration_info": []},
            "json_parse": {"calibration_info": [1]},
            "config_calibration_data": {"calibration_info": [{"sensor_id": 1, "data": "00"}]},
            "config_groups": {"groups": [[item]] * 11},
            "config_group_items": {"groups": [[{**item, "sensor_id": number} for number in range(1, 7)]]},
            "config_sensor_id": {"groups": [[{"sensor_id": 99, "config": {}}]]},
            "missing_config": {"groups": [[{"sensor_id": 1}]]},
            "bad_config": {"groups": [[{"sensor_id": 1, "config": {"colour": 1}}]]},
            "invalid_prf": {"groups": [[{"sensor_id": 1, "config": {"prf": "13.0_MHz"}}]]},
            "double_subsweep_config":
                {"groups": [[{"sensor_id": 1, "config": {"hwaas": 4, "subsweeps": [{}]}}]]},
            "too_many_subsweeps": {"groups": [[{"sensor_id": 1, "config": {"subsweeps": [{}] * 5}}]]},
            "invalid_inter_frame_idle_state":
                {"groups": [[{"sensor_id": 1, "config": {"inter_frame_idle_state": "Sleep"}}]]},
            "invalid_inter_sweep_idle_state":
                {"groups": [[{"sensor_id": 1, "config": {"inter_sweep_idle_state": "off"}}]]},
            "nox_get_buffer_size": {"groups": [[{"sensor_id": 1, "config": {"num_points": 0}}]]},
            "config_max_update_rate_with_frame_rate":
                {"groups": [[{"sensor_id": 1, "config": {"frame_rate": 5}}]], "update_rate": 5},
            "config_multiple_groups_with_frame_rate":
                {"groups": [[{"sensor_id": 1, "config": {"frame_rate": 5}}], [item]]},
            "config_faulty_update_rate": {"update_rate": "fast"},
        }
        for code, configuration in faults.items():
            with self.subTest(code):
                command = {"command": "configure", "configuration": configuration}
                self.refused(json.dumps(command).encode() + b"\n", code)

    def test_garbage_while_streaming_does_not_affect_frames(self):
        self.assertEqual(self.host.ask("configure", configuration=example("single_sensor.json"))["status"], "ok")
        self.host.ask("start")
        self.host.send(b"\x00garbage\n")
        answer, _ = self.host.answer()
        self.assertEqual(answer["code"], "bad_json")
        self.assertIn("result_info", self.host.message()[0])
        self.host.command("stop")
        self.assertEqual(self.host.answer()[0]["command"], "stop")
        self.host.ask("end")

    def test_a_command_in_single_bytes(self):
        for byte in b'{"command":"ping"}\n':
            self.host.send(bytes([byte]))
        self.assertEqual(self.host.message()[0]["command"], "ping")

    def test_a_line_feed_resynchronises(self):
        self.refused(b'{"command":"pi\n', "bad_json")

    def test_half_a_command_is_discarded_when_the_host_disconnects(self):
        with self.server.connect_again(self.host) as host:
            host.send(b'{"command":"pi')
            with self.server.connect_again(host) as self.host:
                self.works()


class TcpBadInput(BadInput, unittest.TestCase):
    link = ("--tcp", "0")


class PtyBadInput(BadInput, unittest.TestCase):
    link = ("--pty",)
