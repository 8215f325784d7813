"""What is the binding's own: types, strides, lifetimes, threads, errors. Run by ctest."""

import contextlib
import doctest
import gc
import io
import os
import pathlib
import pickle
import subprocess
import sys
import threading
import unittest

import numpy as np

import movra_sr
from movra_sr import _analysis, _arrays, _burst, _core, _errors


def simulated(**options):
    return movra_sr.simulate(**{"width": 48, "height": 40, "seed": 3, **options})


class Arrays(unittest.TestCase):
    def setUp(self):
        self.frames = simulated().frames
        self.expected = movra_sr.reconstruct(self.frames).image

    def test_layouts_give_the_same_bits(self):
        padded = np.full((5, 44, 60), np.nan, np.float32)
        padded[:, 2:42, 5:53] = self.frames
        read_only = self.frames.copy()
        read_only.setflags(write=False)
        layouts = {
            "view": padded[:, 2:42, 5:53],
            "Fortran order": np.asfortranarray(self.frames),
            "reversed twice": self.frames[:, ::-1, ::-1].copy()[:, ::-1, ::-1],
            "big-endian": self.frames.astype(">f4"),
            "float64": self.frames.astype(np.float64),
            "read-only": read_only,
            "list": [frame for frame in self.frames],
            "unaligned": np.frombuffer(b"x" + self.frames.tobytes(), np.uint8)[1:].view(np.float32).reshape(5, 40, 48),
        }
        for name, stack in layouts.items():
            with self.subTest(name):
                np.testing.assert_array_equal(movra_sr.reconstruct(stack).image, self.expected)

    def test_no_copy_where_none_is_needed(self):
        for view in (self.frames[0], self.frames[0][3:, 4:20], self.frames[0][::2]):
            self.assertTrue(np.shares_memory(_arrays.as_image(view, ""), view))

    def test_integers(self):
        counts = np.round(self.frames * 100).astype(np.int16)
        options = {"valid_range": (-32768, 32767)}
        expected = movra_sr.reconstruct(counts.astype(np.float32), **options).image
        for dtype in (np.int16, np.int32, np.int64):
            np.testing.assert_array_equal(movra_sr.reconstruct(counts.astype(dtype), **options).image, expected)
        with self.assertRaisesRegex(movra_sr.InvalidArgument, r"frame 0: integers beyond 2\*\*24"):
            movra_sr.reconstruct(counts.astype(np.int64) + 2**25)

    def test_masked_and_listed_pixels_are_bad_ones(self):
        bad = np.zeros((40, 48), bool)
        bad[12, 20] = bad[30, 9] = True
        spoilt = np.where(bad, np.float32(np.nan), self.frames)
        expected = movra_sr.reconstruct(spoilt).image
        masked = np.ma.masked_array(self.frames, np.broadcast_to(bad, self.frames.shape))
        np.testing.assert_array_equal(movra_sr.reconstruct(masked).image, expected)
        expected = movra_sr.reconstruct(spoilt, motion="global").image
        listed = movra_sr.reconstruct(self.frames, motion="global", bad_pixels=bad).image
        np.testing.assert_array_equal(listed, expected)

    def test_refuses_the_rest(self):
        for dtype in (bool, np.complex64, object, "U4", "M8[s]"):
            with self.subTest(dtype), self.assertRaisesRegex(TypeError, "frame 0: .* values are no temperatures"):
                movra_sr.reconstruct(np.zeros((5, 40, 48)).astype(dtype))
        shapes = {
            r"expected frames x rows x columns, got shape \(40, 48\)": np.zeros((40, 48)),
            r"frame 0: expected an image": [np.zeros(5)],
            "no frames": np.zeros((0, 40, 48)),
            "frame 1: is 41 rows x 48 columns, but frame 0 is 40 rows": [np.zeros((40, 48)), np.zeros((41, 48))],
            "8 to 16384": np.zeros((5, 4, 4)),
        }
        for text, stack in shapes.items():
            with self.subTest(text), self.assertRaisesRegex(movra_sr.InvalidArgument, text):
                movra_sr.reconstruct(stack)


class Errors(unittest.TestCase):
    def test_threads_change_no_bit(self):
        frames = simulated(width=96, height=72, roll=1.0).frames
        images = [movra_sr.reconstruct(frames, threads=threads).image for threads in (1, 2, 5)]
        np.testing.assert_array_equal(images[0], images[1])
        np.testing.assert_array_equal(images[0], images[2])

    def test_options(self):
        frames = simulated().frames
        for name, value in {
            "psf_sigma": 9, "iterations": 0, "motion": "sideways", "weight_tv": float("nan"), "reference": -1,
            "relative_residue": 2, "threads": 0,
        }.items():  # fmt: skip
            with self.subTest(name), self.assertRaisesRegex(ValueError, name):
                movra_sr.reconstruct(frames, **{name: value})
        with self.assertRaises(TypeError):
            movra_sr.reconstruct(frames, speed=11)
        with self.assertRaisesRegex(movra_sr.InvalidArgument, "bad_pixels: expected shape"):
            movra_sr.reconstruct(frames, bad_pixels=np.zeros((48, 40), bool))

    def test_bad_frame_changes_nothing(self):
        burst = movra_sr.Burst(width=48, height=40)
        burst.add_frame(simulated().frames[0])
        with self.assertRaisesRegex(movra_sr.BadFrame, "no pixel of the frame is good") as caught:
            burst.add_frame(np.full((40, 48), np.nan))
        self.assertEqual(caught.exception.status, movra_sr.Status.BAD_FRAME)
        self.assertEqual(len(burst), 1)
        burst.clear()
        with self.assertRaisesRegex(movra_sr.InvalidArgument, "no frame"):
            burst.reconstruct()

    def test_every_status_is_named_as_in_c(self):
        texts = {status.text for status in movra_sr.Status}
        self.assertEqual(len(texts), len(movra_sr.Status))
        self.assertNotIn(_core.status_text(99), texts)


class Lifetimes(unittest.TestCase):
    def test_results_outlive_everything(self):
        burst = movra_sr.Burst(width=48, height=40)
        frames = simulated().frames
        for frame in frames:
            burst.add_frame(frame.copy())
        frames[:] = 0  # the burst has copies
        result = burst.reconstruct()
        before = result.image.copy(), result.coverage.copy()
        burst.clear()
        del burst
        gc.collect()
        np.testing.assert_array_equal(result.image, before[0])
        np.testing.assert_array_equal(result.coverage, before[1])
        again = pickle.loads(pickle.dumps(result))  # as a cluster sends it
        np.testing.assert_array_equal(again.image, result.image)
        self.assertIs(again.status, result.status)
        with self.assertRaises(TypeError):
            pickle.dumps(movra_sr.Burst(width=48, height=40))
        error = pickle.loads(pickle.dumps(movra_sr.BadFrame("x", movra_sr.Status.BAD_FRAME)))
        self.assertEqual((str(error), error.status), ("x", movra_sr.Status.BAD_FRAME))


class Progress(unittest.TestCase):
    def test_may_cancel_and_may_fail(self):
        frames = simulated().frames
        heard = []
        movra_sr.reconstruct(frames, progress=heard.append)
        self.assertEqual(heard, sorted(heard))
        self.assertEqual(heard[-1], 1.0)
        with self.assertRaises(movra_sr.Cancelled):
            movra_sr.reconstruct(frames, progress=lambda done: done < 0.3)
        with self.assertRaises(ZeroDivisionError):
            movra_sr.reconstruct(frames, progress=lambda done: 1 / 0)

    def test_cannot_use_its_burst(self):
        burst = movra_sr.Burst(width=48, height=40)
        for frame in simulated().frames:
            burst.add_frame(frame)
        with self.assertRaisesRegex(RuntimeError, "reconstructing"):
            burst.reconstruct(lambda done: burst.clear())
        self.assertEqual(burst.reconstruct().used_frames, 5)


class Threads(unittest.TestCase):
    def test_many_on_one_burst_and_apart(self):
        frames = simulated().frames
        expected = movra_sr.reconstruct(frames).image
        shared = movra_sr.Burst(width=48, height=40)
        for frame in frames:
            shared.add_frame(frame)
        wrong = []

        def work():
            for _ in range(5):
                for image in (shared.reconstruct().image, movra_sr.reconstruct(frames).image):
                    if not np.array_equal(image, expected):
                        wrong.append(image)

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    def test_the_interpreter_is_free_meanwhile(self):
        burst = simulated(width=320, height=240)
        count = 0
        done = threading.Event()

        def work():
            movra_sr.reconstruct(burst.frames, preset="best")
            done.set()

        thread = threading.Thread(target=work)
        interval = sys.getswitchinterval()
        sys.setswitchinterval(60)  # nobody gets the interpreter who is not given it
        try:
            thread.start()
            while not done.wait(0.001):
                count += 1
        finally:
            sys.setswitchinterval(interval)
            thread.join()
        self.assertGreater(count, 3)


class Whole(unittest.TestCase):
    def test_fields(self):
        burst = simulated(width=96, height=72)
        result = movra_sr.reconstruct(burst.frames, reference=burst.reference)
        self.assertEqual((result.image.shape, result.image.dtype), ((144, 192), np.float32))
        self.assertEqual((result.coverage.shape, result.coverage.dtype), ((72, 96), np.uint16))
        self.assertEqual(result.field.shifts.shape[0], 5)
        self.assertEqual(result.field.shifts.shape[3], 2)
        self.assertLess(np.abs(result.shifts - burst.shifts).max(), 0.15)
        self.assertEqual(result.reference, burst.reference)
        self.assertEqual(result.remarks, ["used"] * 5)
        self.assertGreater(result.noise, 0)
        self.assertTrue(1.5 < result.sr_factor <= 2)
        self.assertGreaterEqual(result.timings["total"], result.timings["solve"])

    def test_registration_and_faults_of_the_sensor(self):
        burst = simulated(width=96, height=72, stuck=4, pattern=0.3, frames=8)
        result = movra_sr.reconstruct(burst.frames, reference=burst.reference)
        measured = movra_sr.register(burst.frames, reference=burst.reference)
        for name in ("shifts", "coverage", "bad_pixels", "pattern", "pattern_frames"):
            np.testing.assert_array_equal(getattr(measured, name), getattr(result, name))
        self.assertGreaterEqual(result.bad_pixels.sum(), 3)
        np.testing.assert_array_equal(
            movra_sr.find_bad_pixels(burst.frames, reference=burst.reference), result.bad_pixels
        )
        flat = np.repeat(movra_sr.simulate(width=64, height=48).frames[:1], 5, axis=0)
        self.assertEqual(movra_sr.find_bad_pixels(flat).sum(), 0)  # nothing moves
        self.assertTrue(0.1 < result.pattern.std() < 0.5)
        quality = {
            name: movra_sr.compare(movra_sr.reconstruct(burst.frames, reference=burst.reference, **options).image,
                                   burst.truth).psnr
            for name, options in {
                "known": {"pattern": result.pattern},
                "found": {},
                "kept": {"correct_pattern": False, "search_bad_pixels": False, "correct_offset": False},
            }.items()
        }  # fmt: skip
        self.assertGreater(quality["known"], quality["kept"] + 1)
        self.assertGreater(quality["found"], quality["kept"] + 1)
        with self.assertRaisesRegex(movra_sr.InvalidArgument, "pattern: expected shape"):
            movra_sr.Burst(width=48, height=40, pattern=np.zeros((48, 40)))
        with self.assertRaisesRegex(movra_sr.InvalidArgument, "no pattern"):
            movra_sr.Burst(width=48, height=40, motion="global", pattern=np.zeros((40, 48)))

    def test_compare(self):
        burst = simulated()
        frame = movra_sr.compare(burst.frames[burst.reference], burst.truth)
        image = movra_sr.compare(movra_sr.reconstruct(burst.frames, reference=burst.reference).image, burst.truth)
        self.assertTrue(frame.enlarged and not image.enlarged)
        self.assertGreater(image.psnr, frame.psnr + 1)
        for wrong in ({"truth": burst.truth[:-1]}, {"truth": burst.truth, "border": 40}):
            with self.assertRaises(movra_sr.InvalidArgument):
                movra_sr.compare(burst.frames[0], **wrong)

    def test_the_lines_of_the_guide(self):
        guide = pathlib.Path(__file__).parents[2] / "docs" / "user-guide.md"
        section = guide.read_text().split("## Python")[1]
        code = "\n".join(line[4:] for line in section.splitlines() if line.startswith("    "))
        self.assertIn("reconstruct", code)
        names = {"frames": simulated().frames}
        with contextlib.redirect_stdout(io.StringIO()) as said:
            exec(code, names)
        self.assertIn("success", said.getvalue())
        self.assertEqual(names["bad"].shape, (40, 48))

    def test_nothing_reaches_standard_output(self):
        program = "import movra_sr; movra_sr.reconstruct(movra_sr.simulate(width=48, height=40).frames)"
        run = subprocess.run([sys.executable, "-c", program], capture_output=True, check=True, env=os.environ)
        self.assertEqual((run.stdout, run.stderr), (b"", b""))


def load_tests(loader, tests, pattern):
    for module in (movra_sr, _analysis, _arrays, _burst, _errors):
        tests.addTests(doctest.DocTestSuite(module))
    return tests


if __name__ == "__main__":
    unittest.main()
