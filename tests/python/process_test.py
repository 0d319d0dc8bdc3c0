# SPDX-License-Identifier: MIT
"""The module inside its process: memory, threads, children, Ctrl-C, the end, logging."""
import concurrent.futures
import ctypes
import functools
import gc
import logging
import os
import signal
import subprocess
import sys
import threading
import unittest

from support import main, np, scans, sphere

import zorvan

try:
    import joblib
except ImportError:
    joblib = None

POINTS, NORMALS = sphere()


class Heap(ctypes.Structure):
    """What malloc says of itself; in use are `uordblks` and `hblkhd`."""
    _fields_ = [(name, ctypes.c_size_t) for name in ("arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks",
                                                     "fordblks", "keepcost")]


def heap_bytes():
    gc.collect()
    ask = ctypes.CDLL(None).mallinfo2
    ask.restype = Heap
    heap = ask()
    return heap.uordblks + heap.hblkhd


def pose_of(pair):
    return zorvan.align(*pair).pose


def run(code):
    return subprocess.run([sys.executable, "-c", "import zorvan\n" + code], check=False, capture_output=True, text=True)


class Process(unittest.TestCase):
    def test_no_call_keeps_memory(self):
        result, scan = zorvan.align(*scans()[:2]), zorvan.Scan(POINTS, NORMALS)
        wide = np.zeros((3000, 4), np.float32)

        def calls():
            zorvan.Scan(POINTS.astype(np.float32), NORMALS)
            zorvan.KdTree(wide).nearest(POINTS, 1.0)
            zorvan.PointSet(POINTS, NORMALS).signed_distance(POINTS[:10], 1.0)
            zorvan.document_from_bytes(zorvan.document_to_bytes(zorvan.settings(0.1, {"dMaxRMSE": 1.0})))
            for wrong in POINTS[0], "points":
                try:
                    zorvan.Scan(wrong)
                except (TypeError, ValueError):
                    pass
            return result.candidates, result.covariance, scan.points, scan.normals, zorvan.rgb_to_lab(np.zeros((99, 3), np.uint8))

        for _ in range(50):  # until pools and caches are full
            calls()
        before = heap_bytes()
        for _ in range(700):  # of 15 calls
            calls()
        self.assertLess(heap_bytes() - before, 20000)  # 2 bytes a call

    def test_threads_give_what_one_gives(self):
        pairs = [(scans()[i], scans()[k]) for i in range(3) for k in range(3) if i != k]
        alone = [zorvan.align(*pair).candidates[0]["pose"] for pair in pairs]
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for pose, result in zip(alone, pool.map(lambda pair: zorvan.align(*pair, progress=lambda *_: None), pairs)):
                np.testing.assert_array_equal(result.candidates[0]["pose"], pose)

    @unittest.skipIf(joblib is None, "joblib is not there")
    def test_workers_of_joblib_give_what_one_gives(self):
        pairs = [scans()[:2], scans()[1:]] * 2
        alone = [pose_of(pair) for pair in pairs]
        for backend in "loky", "multiprocessing", "threading":
            with self.subTest(backend):
                np.testing.assert_array_equal(joblib.Parallel(2, backend)(joblib.delayed(pose_of)(pair) for pair in pairs), alone)

    def test_progress_is_shown_by_tqdm(self):
        shown = run("import sys, types\n"
                    "class Bar:\n"
                    "    def __init__(self, **_): print('begun')\n"
                    "    def set_description(self, stage, refresh): print(stage)\n"
                    "    def refresh(self): print(0.0 <= self.n <= 1.0)\n"
                    "    def close(self): print('closed')\n"
                    "for name in 'tqdm', 'tqdm.auto': sys.modules[name] = types.SimpleNamespace(tqdm=Bar)\n"
                    "zorvan.align(*%r, progress=True)\n"
                    "sys.modules['tqdm.auto'] = None  # not installed\n"
                    "assert zorvan.align(*%r, progress=True)" % ((list(map(str, scans()[:2])),) * 2))
        lines = shown.stdout.split()
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        self.assertEqual((lines[0], lines[-1]), ("begun", "closed"))
        self.assertTrue({"True", "searching"} <= set(lines) and "False" not in lines, lines)

    def test_a_child_works_as_its_parent(self):
        pose, held = zorvan.align(*scans()[:2], threads=2).pose, zorvan.register(scans()[:2], threads=2)
        child = os.fork()
        if child == 0:
            refused = False
            try:
                zorvan.register([scans()[2]], session=held.session)
            except ValueError:
                refused = True
            del held  # whose threads are not here
            again = zorvan.register(scans()[:2], threads=2)
            os._exit(0 if refused and again and np.array_equal(zorvan.align(*scans()[:2], threads=2).pose, pose) else 1)
        self.assertEqual(os.waitpid(child, 0)[1], 0)

    def test_other_threads_run_meanwhile(self):
        ticks, done = [], threading.Event()

        def tick():
            while not done.wait(0.001):
                ticks.append(None)

        thread = threading.Thread(target=tick)
        thread.start()
        for _ in range(100):  # a busy machine may give the thread no turn during one search
            seen = []
            zorvan.align(*scans()[:2], progress=lambda stage, fraction: seen.append((fraction, len(ticks))))
            if seen[-1][1] > seen[0][1]:
                break
        done.set()
        thread.join()
        self.assertGreater(seen[-1][1], seen[0][1])
        self.assertTrue(all(0.0 <= fraction <= 1.0 for fraction, _ in seen))

    def test_what_stops_a_search_keeps_what_was_found(self):
        asked = []
        stopped = zorvan.register(scans(), weighed=True, stop=lambda: asked.append(None) or True)
        self.assertTrue(stopped.stopped and not stopped)
        self.assertIn("stopped; so far ", str(stopped))
        self.assertEqual(len(stopped.table), 3)
        signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background job ignores it
        interrupt = functools.partial(os.kill, os.getpid(), signal.SIGINT)  # seen by the library, not in the callback
        for how in {"progress": lambda *_: interrupt()}, {"stop": interrupt}:
            self.assertTrue(zorvan.register(scans(), weighed=True, **how).stopped)

        def fail(*_):
            raise LookupError("mine")

        for how in {"stop": fail}, {"progress": fail}:
            with self.assertRaisesRegex(LookupError, "mine"):
                zorvan.register(scans(), weighed=True, **how)

    def test_messages_go_to_logging(self):
        with self.assertLogs("zorvan", logging.WARNING) as logs:
            zorvan.Scan(np.concatenate([POINTS, np.full((5, 3), np.nan)]), np.concatenate([NORMALS, NORMALS[:5]]))
        self.assertIn("dropped 5", logs.output[0])
        with self.assertLogs("zorvan", logging.DEBUG) as logs:
            zorvan._core._set_log_level(0)
            with concurrent.futures.ThreadPoolExecutor(3) as pool:
                list(pool.map(lambda _: zorvan.align(*scans()[:2]), range(3)))
            zorvan._core._set_log_level(3)
        self.assertGreater(len({record.name for record in logs.records}), 1)

    def test_the_interpreter_ends_while_threads_work(self):
        ended = run("import atexit, numpy, sys, threading, time, types\nfiles = %r\n"
                    "class Slow:\n    def __del__(self, sleep=time.sleep): sleep(0.5)  # others want the lock while the interpreter ends\n"
                    "sys.modules['late'] = types.ModuleType('late')\nsys.modules['late'].slow = Slow()\n"
                    "def look(points):\n    while True: zorvan.KdTree(points).nearest(points, 1.0)\n"
                    "threading.Thread(target=look, args=(numpy.ones((500, 3)),), daemon=True).start()\n"
                    "def work(**how):\n    for _ in range(99): zorvan.align(*files, **how)\n"
                    "for report in 2 * [print, lambda *_, sleep=time.sleep: sleep(0.2)]:\n"
                    "    threading.Thread(target=work, kwargs={'progress': report}, daemon=True).start()\n"
                    "time.sleep(1)\natexit.register(lambda: zorvan.align(*files))\n" % (list(map(str, scans()[:2])),))
        self.assertEqual((ended.returncode, ended.stderr), (0, ""))


if __name__ == "__main__":
    main()
