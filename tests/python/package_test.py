"""The Python package against the command line, and against what people do to it. --list prints the tests' names."""

import gc
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import warnings

import numpy

import velloran

PROGRAM = os.environ.get("VELLORAN_PROGRAM", "velloran")
SIZE = (45, 71)  # no multiples of anything
ADD = "(def_effect Add (Source) () amount = 0.25 (min 0 max 1)\n dest = (+ Source amount) )\n"
COPY = "(def_effect Copy (Source) () dest = Source )\n"


def picture(seed=1, dtype=numpy.uint8, channels=3, size=SIZE):
    random = numpy.random.default_rng(seed)
    if numpy.dtype(dtype).kind == "u":
        return random.integers(0, numpy.iinfo(dtype).max, (*size, channels), dtype, endpoint=True)
    return random.random((*size, channels)).astype(dtype)


def write_ppm(path, image):
    with open(path, "wb") as file:
        file.write(b"P6 %d %d %d\n" % (image.shape[1], image.shape[0], numpy.iinfo(image.dtype).max))
        file.write(image.astype(image.dtype.newbyteorder(">")).tobytes())


def as_command_line(effect, images, arguments=(), frame=1):
    """Raw frames out of the program, which reads the pictures from files."""
    with tempfile.TemporaryDirectory() as directory:
        words = [PROGRAM, "render", effect, "-o", "-.rgb24" if images[0].dtype == numpy.uint8 else "-.rgb48le",
                 "-f", str(frame), "-q", *arguments]
        for number, image in enumerate(images):
            path = os.path.join(directory, f"in{'abcd'[number]}.ppm")
            write_ppm(path, image)
            words += ["-i", path]
        done = subprocess.run(words, capture_output=True, check=False)
        if done.returncode:
            raise AssertionError(f"{words}: {done.stderr.decode()}")
        return numpy.frombuffer(done.stdout, images[0].dtype).reshape(images[0].shape)


def resident_kilobytes():
    with open("/proc/self/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


class PackageTest(unittest.TestCase):
    def setUp(self):
        warnings.simplefilter("ignore")

    def test_the_same_pictures_as_the_command_line(self):
        """Effects of every family, with their defaults and with all their numbers moved."""
        compared = 0
        for name in velloran.effects():
            effect = velloran.describe(name)["effects"][0]
            if not effect["inputs"] or name.startswith(("Deinterlace", "Reinterlace", "time", "interlace")):
                continue
            family = name.split(":")[0]
            if family == getattr(self, "last_family", None) and compared > 8:
                continue
            self.last_family = family
            images = [picture(seed) for seed in range(len(effect["inputs"]))]
            moved = {param["name"]: round(0.7 * param["default"][0] + 0.1, 3) for param in effect["params"]
                     if param["kind"] == "float" and len(param["default"]) == 1 and not param.get("moves")}
            for params in ({}, moved):
                arguments = [word for key, value in params.items() for word in ("-p", f"{key}={value}")]
                expected = as_command_line(name, images, arguments, 3)
                numpy.testing.assert_array_equal(velloran.render(name, *images, frame=3, params=params), expected,
                                                 f"{name} {params}")
                compared += 1
        self.assertGreater(compared, 40)
        deep = picture(5, numpy.uint16)
        piped = subprocess.run([PROGRAM, "render", "blur", "-i", "-.rgb48le", "--size", f"{SIZE[1]}x{SIZE[0]}",
                                "--length", "1", "-o", "-.rgb48le", "-q"], input=deep.tobytes(),
                               capture_output=True, check=True)
        numpy.testing.assert_array_equal(velloran.render("blur", deep),
                                         numpy.frombuffer(piped.stdout, numpy.uint16).reshape(deep.shape))

    def test_types_and_layouts(self):
        for dtype in (numpy.uint8, numpy.uint16, numpy.float16, numpy.float32):
            for channels in (1, 3, 4):
                image = picture(2, dtype, channels)
                before = image.copy()
                made = velloran.render("Add", image, text=ADD, amount=0)
                numpy.testing.assert_array_equal(image, before)
                self.assertEqual((made.dtype, made.shape), (image.dtype, image.shape))
                white = 1 if numpy.dtype(dtype).kind == "f" else numpy.iinfo(dtype).max
                numpy.testing.assert_allclose(made.astype(float), image.astype(float), rtol=0,
                                              atol=0 if dtype == numpy.uint8 else white / 2000)
                if channels == 4:
                    numpy.testing.assert_array_equal(made[..., 3], image[..., 3])
                plain = velloran.render("Add", image, text=ADD, amount=0.3)
                wide = numpy.zeros((SIZE[0] * 2, SIZE[1] * 3, channels), dtype)[::2, ::3][::-1, ::-1]
                wide[...] = image
                numpy.testing.assert_array_equal(velloran.render("Add", wide, text=ADD, amount=0.3), plain)
                wide.flags.writeable = False
                numpy.testing.assert_array_equal(velloran.render("Add", wide, text=ADD, amount=0.3), plain)
        flat = picture()[..., 0]
        self.assertEqual(velloran.render("Add", memoryview(numpy.ascontiguousarray(flat)), text=ADD).shape, SIZE)
        source = next(name for name in velloran.effects() if not velloran.describe(name)["effects"][0]["inputs"])
        self.assertEqual(velloran.render(source, shape=(9, 7), dtype=numpy.float32).shape, (9, 7, 3))

    def test_faults_are_named(self):
        image = picture()

        def says(kind, words, *inputs, effect="Add", **arguments):
            with self.assertRaises(kind) as caught:
                velloran.render(effect, *inputs, text=None if ":" in effect else ADD, **arguments)
            self.assertIn(words, str(caught.exception))
            return caught.exception

        for wrong in (numpy.int32, numpy.float64, numpy.dtype(">u2"), bool):
            says(TypeError, str(numpy.dtype(wrong)), image.astype(wrong))
        says(ValueError, "(45, 71, 2)", image[..., :2])
        says(ValueError, "(0, 71, 3)", image[:0])
        says(ValueError, "(71,)", image[0, :, 0])
        says((TypeError, ValueError), "input 1", "a text")
        says((TypeError, ValueError), "input 1", None)
        says(velloran.Error, "input 'Source' is missing")
        says(velloran.Error, "too many", image, image)
        says(velloran.Error, "did you mean 'amount'", image, amuont=1)
        says(velloran.Error, "no number", image, amount="red")
        says(TypeError, "amount", image, amount=object())
        says(TypeError, "frame", image, frame=1.5)
        says(ValueError, "length", image, length=0)
        says(velloran.Error, "frame 9", image, frame=9, length=3)
        says(velloran.Error, "did you mean", image, effect="blur:Sotf_Focus")
        says(velloran.Error, "71x44", image, image[1:], effect=self.of_two_inputs())
        with self.assertWarns(UserWarning):
            velloran.render("Add", image, text=ADD, amount=7)
        with self.assertWarns(UserWarning):
            velloran.render("Add", image.astype(numpy.float32) * 2, text=ADD)
        broken = "(def_effect B (Source) ()\n dest = (blurr Source 1) )\n"
        with self.assertRaises(velloran.Error) as caught:
            velloran.render("B", image, text=broken, file="b.text")
        self.assertEqual((caught.exception.file, caught.exception.line), ("b.text", 2))
        self.assertGreater(caught.exception.column, 0)
        self.assertTrue(any(message.severity == "error" and message.line == 2 for message in velloran.check(broken)))
        self.assertFalse([message for message in velloran.check(ADD) if message.severity == "error"])

    def of_two_inputs(self):
        return next(f"{family}:{effect['name']}" for family in ("transitions", "masked", "depth")
                    for effect in velloran.describe(family)["effects"] if len(effect["inputs"]) == 2)

    def test_clips(self):
        """Frames of sequences and functions are those of the files that the command line reads."""
        frames = [picture(seed) for seed in range(6)]
        for given in (frames, tuple(frames), numpy.stack(frames), lambda frame: frames[frame - 11]):
            made = velloran.render("Copy", given, text=COPY, frame=13, first=11, length=6)
            numpy.testing.assert_array_equal(made, frames[2])
        asked = []

        def give(frame):
            asked.append(frame)
            return frames[frame - 1]

        looking = [name for name in velloran.effects() if name.startswith("time:")]
        self.assertTrue(looking)
        for name in looking:
            if len(velloran.describe(name)["effects"][0]["inputs"]) != 1:
                continue
            try:
                from_list = velloran.render(name, frames, frame=4)
            except velloran.Error as problem:
                self.assertIn("come out", str(problem))
                continue
            numpy.testing.assert_array_equal(from_list, velloran.render(name, give, frame=4, length=6), name)
        self.assertGreater(len(set(asked)), 2)
        remembering = next((name for name in velloran.effects()
                            if velloran.describe(name)["effects"][0]["remembers"]
                            and len(velloran.describe(name)["effects"][0]["inputs"]) == 1), None)
        if remembering:
            alone = velloran.render(remembering, frames, frame=4)
            for frame in range(1, 5):
                in_order = velloran.render(remembering, frames, frame=frame)
            numpy.testing.assert_array_equal(in_order, alone, remembering)

    def test_values_of_every_kind(self):
        image = picture()
        half = velloran.render("Add", image, text=ADD, amount=0.5)
        for value in ("0.5", numpy.float32(0.5), [0.5], numpy.array([0.5]), {1: 0.5}, {1: 0.5, 5: 0.5}):
            numpy.testing.assert_array_equal(velloran.render("Add", image, text=ADD, amount=value), half)
        moving = {1: 0, 5: 1}
        numpy.testing.assert_array_equal(
            velloran.render("Add", image, text=ADD, amount=moving, frame=3, length=5), half)
        cropped = velloran.render("Add", image, text=ADD, amount=0.5, controls={"crop": (10, 10, 10, 10)})
        self.assertFalse((cropped == half).all())
        numpy.testing.assert_array_equal(velloran.render("Add", image, text=ADD, amount=0.5), half)

    def test_exceptions_of_callbacks_come_through(self):
        class Mine(Exception):
            pass

        def fail(frame):
            if frame == 2:
                raise Mine(frame)
            return picture()

        frames = [picture(seed) for seed in range(3)]
        for call in range(3):
            with self.assertRaises(Mine):
                velloran.render("Copy", fail, text=COPY, frame=2, length=3)
        with self.assertRaises(Mine):  # after the first input was read
            velloran.render(self.of_two_inputs(), frames[0], fail, frame=2, length=3)
        with self.assertRaises(TypeError):
            velloran.render("Copy", lambda frame: None, text=COPY)
        nested = velloran.render("Add", lambda frame: velloran.render("Add", frames[0], text=ADD), text=ADD)
        numpy.testing.assert_array_equal(
            nested, velloran.render("Add", velloran.render("Add", frames[0], text=ADD), text=ADD))

    def test_many_threads(self):
        names = ["blur", "color", "edges", "glows"]
        expected = [velloran.render(names[i % 4], picture(i)) for i in range(16)]
        failed = []

        def work(i):
            for _ in range(3):
                if not (velloran.render(names[i % 4], lambda frame: picture(i)) == expected[i]).all():
                    failed.append(i)

        threads = [threading.Thread(target=work, args=(i,)) for i in range(16)]
        ticks = 0
        for thread in threads:
            thread.start()
        while any(thread.is_alive() for thread in threads):
            ticks += 1  # goes on only where the interpreter is free meanwhile
            time.sleep(0.001)
        self.assertEqual(failed, [])
        self.assertGreater(ticks, 10)

    def test_an_interrupt_stops_a_render(self):
        large = picture(1, size=(2160, 3840))
        slow = "(def_effect Slow (Source) () dest = " + "(blur " * 30 + "Source" + " 0.3 0.3 2 1)" * 30 + " )\n"
        signal.signal(signal.SIGINT, signal.default_int_handler)
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        start = time.monotonic()
        with self.assertRaises(KeyboardInterrupt):
            for _ in range(100):
                velloran.render("Slow", large, text=slow)
        self.assertLess(time.monotonic() - start, 5)
        self.assertEqual(velloran.render("Add", picture(), text=ADD).shape, (*SIZE, 3))

    def test_memory_is_flat(self):
        image, after_some = picture(size=(270, 480)), 0
        for i in range(1000):
            velloran.render("Add", lambda frame: image, text=ADD, amount=(i % 7) / 7)
            if i % 50 == 0:
                velloran.render("blur", image[: 200 + i // 50])  # another size: effects are closed
            if i == 300:
                gc.collect()
                after_some = resident_kilobytes()
        gc.collect()
        self.assertLess(resident_kilobytes() - after_some, 6000)
        self.assertLess(sys.getrefcount(image), 6)

    def test_nothing_is_printed_and_a_fork_is_told(self):
        script = ("import velloran, numpy, os, sys\n"
                  "image = numpy.zeros((9, 9, 3), numpy.uint8)\n"
                  "velloran.render('flares', image)\n"
                  "sys.stdout.flush()\n"
                  "child = os.fork()\n"
                  "if child == 0:\n"
                  "    try:\n"
                  "        velloran.render('flares', image)\n"
                  "    except velloran.Error as error:\n"
                  "        os._exit(7 if 'spawn' in str(error) else 8)\n"
                  "    os._exit(9)\n"
                  "assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7\n")
        done = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=60, check=False)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""))


if __name__ == "__main__":
    if sys.argv[1:] == ["--list"]:
        print("\n".join(unittest.defaultTestLoader.getTestCaseNames(PackageTest)))
    else:
        unittest.main()
