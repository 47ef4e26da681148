#!/usr/bin/env python3
"""can_test.py SOURCE-FOLDER LIBRARY: the bus for python-can from the built wheel, with a
simulated dongle and the frames of the demonstration car."""
import json, os, socket, subprocess, sys, tempfile, threading, time, unittest, zipfile
from pathlib import Path

SOURCE, LIBRARY = Path(sys.argv[1]), sys.argv[2]
PATIENCE_S = 30.0


def install_wheel(folder):
    """As an installer does, with the file that names the entry point."""
    subprocess.run([SOURCE / "scripts/package_python.sh", folder / "wheel"], check=True,
                   stdout=subprocess.DEVNULL)
    wheel, = (folder / "wheel").glob("*.whl")
    zipfile.ZipFile(wheel).extractall(folder / "site")
    sys.path.insert(0, str(folder / "site"))
    os.environ["PYTHONPATH"] = str(folder / "site")


FOLDER = tempfile.TemporaryDirectory()
install_wheel(Path(FOLDER.name))

import can
import tarvik_dpdu
from tarvik_dpdu import can as tarvik_can
from tarvik_dpdu.module import ModuleInfo


def control(command):
    """Sends the simulator a command and returns its answer."""
    host, port = os.environ["BRENNIX_SIM_CONTROL"].rsplit(":", 1)
    with socket.create_connection((host, int(port)), PATIENCE_S) as connection:
        with connection.makefile("rw") as stream:
            stream.write(command + "\n")
            stream.flush()
            answer = stream.readline()
    if not answer.startswith("ok"):
        raise AssertionError(f"{command}: {answer}")
    return answer[2:].strip()


def open_bus(**options):
    """A simulator on a busy machine may miss the time in which a port must answer; the library then
    leaves the port alone until it is plugged in again."""
    deadline = time.monotonic() + PATIENCE_S
    while True:
        try:
            return can.Bus(interface="tarvik", channel=0, library=LIBRARY, timeout=4.0, **options)
        except can.CanInitializationError:
            if time.monotonic() > deadline:
                raise
            control("unplug")
            time.sleep(0.5)
            control("replug")


def next_of(bus, *identifiers, after=None):
    """The next frame with such an identifier; sends `after` until one comes, since the dongle may begin
    to receive a little later than the bus is open."""
    deadline = time.monotonic() + PATIENCE_S
    sent = 0.0
    while time.monotonic() < deadline:
        if after is not None and time.monotonic() - sent > 1.0:
            bus.send(after, timeout=10)
            sent = time.monotonic()
        message = bus.recv(1.0)
        if message is not None and message.arbitration_id in identifiers:
            return message
    raise AssertionError(f"no frame with {identifiers}")


class Bus(unittest.TestCase):
    def setUp(self):
        config = Path(os.environ["BRENNIX_SIM_SCRATCH"], "config/Tarvik/Brennix")
        config.mkdir(parents=True, exist_ok=True)
        (config / "config.json").write_text(json.dumps(
            {"showDebug": False, "useSerial": True, "useCloud": False, "useBle": False,
             "dummyDevice": False, "enableDebugLogFile": False}))

    def open(self, **options):
        bus = open_bus(**options)
        self.addCleanup(bus.shutdown)
        return bus

    def test_frames_of_the_bus_are_received_with_times_of_day(self):
        bus = self.open()
        message = next_of(bus, 0x0C0)
        self.assertFalse(message.is_extended_id)
        self.assertEqual(message.dlc, 8)
        self.assertLess(abs(message.timestamp - time.time()), PATIENCE_S)
        self.assertTrue(next_of(bus, 0x18FEF718).is_extended_id)
        self.assertIn("Brennix demo", str(bus))

    def test_frame_is_sent_and_answered_with_both_lengths_of_identifiers(self):
        bus = self.open()
        ask = can.Message(arbitration_id=0x600, data=[0x01, 0x0D], is_extended_id=False)
        self.assertEqual(bytes(next_of(bus, 0x601, after=ask).data), bytes.fromhex("410DE0"))
        ask = can.Message(arbitration_id=0x18DAFFF1, data=[], is_extended_id=True)
        self.assertTrue(next_of(bus, 0x18DAF110, after=ask).is_extended_id)

    def test_filters_let_only_their_frames_pass(self):
        bus = self.open(can_filters=[{"can_id": 0x1A0, "can_mask": 0x7FF, "extended": False}])
        self.assertEqual({next_of(bus, *range(0x800)).arbitration_id for _ in range(3)}, {0x1A0})

    def test_receiving_ends_after_its_time(self):
        bus = self.open(can_filters=[{"can_id": 0x7FF, "can_mask": 0x7FF, "extended": False}])
        self.assertIsNone(bus.recv(0.05))
        self.assertIsNone(bus.recv(0))

    def test_receiving_does_not_wait_for_a_look_for_the_module(self):
        bus = self.open()
        looks, end = threading.Event(), threading.Event()
        self.addCleanup(end.set)  # before the bus is shut down

        def look():
            looks.set()
            end.wait(PATIENCE_S)
            raise tarvik_dpdu.LostModule("pulled out")

        bus._module.check = look
        bus._link.receive = lambda timeout: None  # a silent vehicle
        bus._last_sign_s = time.monotonic() - 1000
        self.assertIsNone(bus.recv(0))
        self.assertTrue(looks.wait(PATIENCE_S))
        self.assertIsNone(bus.recv(0))
        self.assertFalse(end.is_set())
        end.set()
        deadline = time.monotonic() + PATIENCE_S
        with self.assertRaisesRegex(can.CanOperationError, "pulled out"):
            while time.monotonic() < deadline:
                bus.recv(0)

    def test_notifier_passes_frames_to_its_listeners(self):
        bus = self.open()
        reader = can.BufferedReader()
        notifier = can.Notifier(bus, [reader], timeout=0.2)
        self.assertIsNotNone(reader.get_message(PATIENCE_S))
        notifier.stop()

    def test_periodic_message_is_sent_until_it_is_stopped(self):
        bus = self.open()
        message = can.Message(arbitration_id=0x600, data=[0x01, 0x0D], is_extended_id=False)
        task = bus.send_periodic(message, 0.02)
        for _ in range(3):
            next_of(bus, 0x601)
        task.stop()

    def test_dongle_that_was_pulled_out_ends_receiving_and_sending_with_an_error(self):
        bus = self.open()
        next_of(bus, 0x0C0)
        control("unplug")
        self.addCleanup(control, "replug")
        with self.assertRaisesRegex(can.CanOperationError, "the module is gone"):
            while True:
                bus.recv(PATIENCE_S)

    def test_messages_that_such_a_bus_does_not_have_are_refused(self):
        bus = self.open()
        for message in (can.Message(arbitration_id=1, is_remote_frame=True),
                        can.Message(arbitration_id=1, is_fd=True, data=bytes(12))):
            with self.assertRaises(ValueError):
                bus.send(message)

    def test_bus_that_was_shut_down_receives_nothing(self):
        bus = self.open()
        bus.shutdown()
        bus.shutdown()
        with self.assertRaises(can.CanOperationError):
            bus.recv(1.0)

    def test_what_cannot_be_opened_is_one_kind_of_error_with_a_reason(self):
        for options, reason in (({"channel": 7, "timeout": 0.1, "library": LIBRARY}, "no module 7"),
                                ({"channel": "S-9", "timeout": 0.1, "library": LIBRARY}, "S-9"),
                                ({"channel": 0, "library": "/nowhere/to_be_found"}, "to_be_found"),
                                ({"channel": 0, "fd": True}, "FD"),
                                ({"channel": 0, "receive_own_messages": True}, "sent")):
            with self.assertRaisesRegex(can.CanInitializationError, reason):
                can.Bus(interface="tarvik", **options)


class ListOfModules:
    """What the bus needs of a library, with modules of these names and serial numbers."""

    def __init__(self, *rows, appear_after=0):
        self.rows = [ModuleInfo(handle, 0, 0, f"ModuleName='{name}' SerialNumber='{serial}'", "")
                     for handle, (name, serial) in enumerate(rows)]
        self.looks, self.pauses, self.appear_after = 0, [], appear_after

    def modules(self, timeout=0.0, text=""):
        self.looks += 1
        return self.rows if self.looks > self.appear_after else []

    def _pause_between_scans(self, left):
        self.pauses.append(left)

    def _connect(self, info):
        return info.handle


class Channel(unittest.TestCase):
    def find(self, channel, *rows):
        return tarvik_can._find_module(ListOfModules(*rows), channel, 0)

    def test_number_is_a_position_as_int_and_as_text(self):
        for channel in (1, "1"):
            self.assertEqual(self.find(channel, ("same", "70"), ("same", "80")), 1)

    def test_modules_with_equal_texts_are_told_apart_by_number(self):
        for number in (0, 1):
            self.assertEqual(self.find(number, ("same", ""), ("same", "")), number)

    def test_serial_number_of_digits_comes_before_a_position(self):
        for channel in (0, "0"):
            self.assertEqual(self.find(channel, ("one", "70"), ("two", "0")), 1)
        self.assertEqual(self.find("70", ("one", "80"), ("two", "70")), 1)

    def test_exact_name_comes_before_one_that_contains_it(self):
        self.assertEqual(self.find("dongle", ("Dongle 2", "1"), ("Dongle", "2")), 1)
        self.assertEqual(self.find("gle 2", ("Dongle 2", "1"), ("Dongle", "2")), 0)

    def test_text_of_several_modules_is_refused(self):
        with self.assertRaisesRegex(tarvik_dpdu.NoModule, "2 modules match 'dongle': 11; 12"):
            self.find("dongle", ("Dongle 1", "11"), ("Dongle 2", "12"))

    def test_negative_number_is_refused(self):
        for channel in (-1, "-1"):
            with self.assertRaisesRegex(ValueError, "negative"):
                self.find(channel, ("one", "S-1"))

    def test_each_look_for_a_missing_number_but_the_last_is_followed_by_a_pause(self):
        library = ListOfModules(("one", ""), ("two", ""), appear_after=3)
        self.assertEqual(tarvik_can._find_module(library, 1, PATIENCE_S), 1)
        self.assertEqual((library.looks, len(library.pauses)), (4, 3))
        self.assertGreater(min(library.pauses), 0)


class Tools(Bus):
    """python-can's own programs, as users start them."""

    def run_tool(self, name, *arguments, seconds=None):
        """Interrupts it after that time as Ctrl-C does, but without a signal: umockdev sometimes leaves
        a thread the signal mask of another, and the library's threads block all."""
        code = ("import _thread, runpy, signal, sys, threading\n"
                # Tests in the background of a shell are started with it ignored.
                "signal.signal(signal.SIGINT, signal.default_int_handler)\n"
                "sys.argv[0] = sys.argv.pop(1)\n"
                "seconds = float(sys.argv.pop(1))\n"
                "timer = threading.Timer(seconds, _thread.interrupt_main)\n"
                "timer.daemon = True\n"
                "timer.start()\n"
                "runpy.run_module(sys.argv[0], run_name='__main__')")
        tool = subprocess.run([sys.executable, "-c", code, name, str(seconds or 1000), *arguments],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=4 * PATIENCE_S,
                              env={**os.environ, "DPDU_LIBRARY": LIBRARY})
        return tool.stdout.decode()

    def test_logger_writes_frames_and_player_sends_them(self):
        open_bus().shutdown()  # the dongle is there
        log = Path(FOLDER.name, "bus.log")
        deadline = time.monotonic() + PATIENCE_S
        while not log.exists() or " 0C0#" not in log.read_text():
            self.assertLess(time.monotonic(), deadline, log.exists() and log.read_text())
            output = self.run_tool("can.logger", "-i", "tarvik", "-c", "0", "-f", str(log), seconds=4)
            self.assertNotIn("Traceback", output)
        before = json.loads(control("@0 stats"))
        self.assertIn(" 0C0#", log.read_text())
        log.write_text("(1.000000) can0 600#010D\n(1.010000) can0 600#010D\n")
        output = self.run_tool("can.player", "-i", "tarvik", "-c", "0", str(log))
        self.assertNotIn("Traceback", output)
        self.assertNotEqual(json.loads(control("@0 stats")), before)


for name in [name for name in vars(Bus) if name.startswith("test_")]:
    setattr(Tools, name, None)  # only once

if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
