# SPDX-License-Identifier: MIT
"""Brings 3D surface scans into one frame without knowing where they were taken::

    import zorvan
    pair = zorvan.align("a.ply", "b.ply")              # or arrays: (N, 3) points, or (points, normals)
    if pair: print(pair.pose, pair.covariance)
    else: print(pair.verdict, pair.reason)

Scans are `Scan` objects, names of files, arrays of points, or pairs (points, normals). Points are (N, 3) arrays of
float32 or float64, copied once, or (N, 4) arrays of float32 whose fourth column has no meaning. They must not be
changed while a call runs. Lengths go in and come out in the unit of the scans, `mm_per_unit` millimetres each, unless a
docstring says mm. Poses are (4, 4) arrays of float64 that map column vectors: p_fix = pose @ p_flt. Points far from the
origin, as on a map, come as float64 or from a file: a shift is taken off them in double precision, and poses are for the
coordinates as they came.

A notebook shows a `Scan` as a picture from where its z axis points, and a `Registration` as its report.

Work runs without the interpreter's lock. Ctrl-C ends a search, which returns what it has found with `stopped` set.
Warnings go to the logger "zorvan"; a search warns of much that is its everyday business.
"""

from __future__ import annotations

import datetime as _datetime
import html as _html
import importlib as _importlib
import logging as _logging
import os as _os
from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, Union

from ._core import (Alignment, InputError, KdTree, PointSet, Registration, Scan, Session, __version__, colour_distance,
                    describe_setting, document_from_bytes, document_to_bytes, icp, lab_to_rgb, read_clouds,
                    read_document, read_settings, rgb_to_lab, sample_mesh, settings, write_cloud)
from . import _core

if TYPE_CHECKING:
    import numpy
    from numpy.typing import NDArray

    Array = NDArray[Any]
    ScanLike = Union[Scan, str, _os.PathLike[str], Array, tuple[Array, Array]]
    Progress = Union[bool, Callable[[str, float], object], None]

__all__ = ["Alignment", "DateTime", "InputError", "KdTree", "PointSet", "Regex", "Registration", "Scan", "Session", "__version__", "align",
           "colour_distance", "describe_setting", "document_from_bytes", "document_to_bytes", "features", "fit", "icp",
           "judge", "lab_to_rgb", "read_clouds", "read_document", "read_settings", "register", "rgb_to_lab",
           "sample_mesh", "settings", "write_cloud"]

_logging.getLogger("zorvan").addHandler(_logging.NullHandler())


class DateTime(int):
    """A time in a document: milliseconds since 1970 UTC, also where `datetime` ends."""

    _EPOCH = _datetime.datetime(1970, 1, 1, tzinfo=_datetime.timezone.utc)

    @classmethod
    def of(cls, moment: _datetime.datetime) -> DateTime:
        """That of a moment with a time zone, whole milliseconds."""
        return cls((moment - cls._EPOCH) // _datetime.timedelta(milliseconds=1))

    @property
    def moment(self) -> _datetime.datetime:
        """In UTC. Raises OverflowError before the year 1 and after 9999."""
        return self._EPOCH + _datetime.timedelta(milliseconds=int(self))


class Regex(NamedTuple):
    """A regular expression in a document."""

    pattern: str
    options: str = ""


def _to_scan(source: ScanLike, name: str, mm_per_unit: float, sensor: Optional[Sequence[float]] = None,
             mesh: str = "auto") -> Scan:
    if isinstance(source, Scan):
        return source
    if isinstance(source, (str, _os.PathLike)):
        return Scan.read(source, sensor=sensor, mm_per_unit=mm_per_unit, mesh=mesh)
    if isinstance(source, tuple):
        if len(source) != 2:
            raise ValueError(f"{name}: a tuple is (points, normals), not {len(source)} things")
        return Scan(*source, sensor=sensor, name=name, mm_per_unit=mm_per_unit, mesh=mesh)
    return Scan(source, sensor=sensor, name=name, mm_per_unit=mm_per_unit, mesh=mesh)


class _Bar:
    """Progress on a terminal by tqdm, which may be missing: then there is none."""

    def __init__(self, progress: Progress) -> None:
        self.callback: Optional[Callable[[str, float], object]] = None
        self._bar: Any = None
        if progress is not True:
            self.callback = progress or None
            return
        try:
            tqdm = _importlib.import_module("tqdm.auto").tqdm
        except ImportError:
            return
        self._bar = tqdm(total=1.0, leave=False, bar_format="{desc} {percentage:3.0f}%|{bar}| {elapsed}")
        self.callback = self._show

    def _show(self, stage: str, fraction: float) -> None:
        self._bar.set_description(stage, refresh=False)
        self._bar.n = fraction
        self._bar.refresh()

    def __enter__(self) -> _Bar:
        return self

    def __exit__(self, *error: object) -> None:
        if self._bar is not None:
            self._bar.close()


def align(fix: ScanLike, flt: ScanLike, *, start: Optional[Array] = None, mm_per_unit: float = 1.0,
          grid: Optional[float] = None, settings: Optional[Mapping[str, Any]] = None, threads: int = 1,
          fix_sensor: Optional[Sequence[float]] = None, flt_sensor: Optional[Sequence[float]] = None,
          fix_ray: Optional[Sequence[float]] = None, flt_ray: Optional[Sequence[float]] = None, mesh: str = "auto",
          progress: Progress = None, stop: Optional[Callable[[], bool]] = None) -> Alignment:
    """Finds the pose of `flt` in the frame of `fix`, and says whether it can be relied on.

    start: a rough pose (4, 4), which is refined; without, the pose is searched for. grid: typical point distance, which
    all settings grow with; without, it is found from the scans. settings: a dict that replaces some, see `settings`.
    fix_sensor, flt_sensor: where a sensor stood, in coordinates of its scan; fix_ray, flt_ray: the direction to one far
    away; without, they are found from the raster of the points. mesh: "model" where the faces of `fix` are meant and not
    its corners, "scan" where not, "auto" to tell by the mesh. threads: the result does not depend on it. progress: True
    for a bar of tqdm, or a callable of stage and fraction. stop: asked ten times a second whether to end.

    Raises InputError for scans that cannot be used, with what to do."""
    with _Bar(progress) as bar:
        return _core._align(_to_scan(fix, "fix", mm_per_unit, fix_sensor, mesh), _to_scan(flt, "flt", mm_per_unit, flt_sensor),
                            start, bar.callback, stop, grid=grid, settings=settings, threads=threads,
                            fix_sensor=fix_sensor, flt_sensor=flt_sensor, fix_ray=fix_ray, flt_ray=flt_ray)


def judge(fix: ScanLike, flt: ScanLike, poses: Union[Array, Sequence[Array]], *, mm_per_unit: float = 1.0,
          grid: Optional[float] = None, settings: Optional[Mapping[str, Any]] = None,
          fix_sensor: Optional[Sequence[float]] = None, flt_sensor: Optional[Sequence[float]] = None,
          fix_ray: Optional[Sequence[float]] = None, flt_ray: Optional[Sequence[float]] = None,
          mesh: str = "auto") -> Alignment:
    """Refines and weighs poses that were found elsewhere, (4, 4) each, and compares them with one another. Rivals that
    are not in the list are not looked for. The other arguments are those of `align`."""
    return _core._judge(_to_scan(fix, "fix", mm_per_unit, fix_sensor, mesh), _to_scan(flt, "flt", mm_per_unit, flt_sensor),
                        poses, grid=grid, settings=settings, threads=1, fix_sensor=fix_sensor, flt_sensor=flt_sensor,
                        fix_ray=fix_ray, flt_ray=flt_ray)


def register(scans: Union[Mapping[str, ScanLike], Iterable[ScanLike]] = (), *,
             session: Union[Session, str, _os.PathLike[str], None] = None, optimize: bool = False,
             weighed: Optional[bool] = None, keep_going: bool = False, start: Optional[Mapping[str, Array]] = None,
             mm_per_unit: float = 1.0, grid: Optional[float] = None, settings: Optional[Mapping[str, Any]] = None,
             threads: int = 1, progress: Progress = None,
             stop: Optional[Callable[[], bool]] = None) -> Registration:
    """Brings many scans into one frame. Those that follow each other are tried first.

    scans: a dict by name, or a list; names are then those of the files, or "scan0", "scan1", ... session: one to go on
    with, or its file. optimize: refines all poses together afterwards. weighed: places scans where all pairs agree,
    instead of merging the first pair that fits: slower, for parts that fit in many places; None: when a scan has plane
    faces, and where pairs are at odds after merging. keep_going: leaves out a
    scan whose sizes suit no settings. start: rough poses by name, (4, 4), to one frame. The other arguments are those of
    `align`; a session keeps its grid and settings."""
    pairs = scans.items() if isinstance(scans, Mapping) else ((f"scan{i}", scan) for i, scan in enumerate(scans))
    ready = [_to_scan(scan, name, mm_per_unit) for name, scan in pairs]
    if isinstance(session, (str, _os.PathLike)):
        session = Session.load(session, threads)
    if not ready and session is None:
        raise ValueError("scans: needs at least one, or a session to go on with")
    with _Bar(progress) as bar:
        return _core._register(ready, session, bar.callback, stop, optimize=optimize, weighed=weighed,
                               keep_going=keep_going, start=None if start is None else dict(start), grid=grid,
                               settings=settings, threads=threads)


def features(scan: ScanLike, *, mm_per_unit: float = 1.0, grid: Optional[float] = None,
             settings: Optional[Mapping[str, Any]] = None,
             threads: int = 1) -> tuple[NDArray[numpy.float32], NDArray[numpy.float32], NDArray[numpy.float32]]:
    """What a search sees of a scan: feature points (K, 3), their normals (K, 3), both mm, and their histograms (K, 33),
    all float32. A histogram is three of 11 bins that sum to 1 each."""
    return _core._features(_to_scan(scan, "scan", mm_per_unit), grid, settings, threads)


def fit(primitive: str, scan: ScanLike, *, radius: Union[float, tuple[float, float], None] = None,
        mm_per_unit: float = 1.0) -> dict[str, Any]:
    """Fits a "sphere", "cylinder" or "cone" to a scan wherever it lies. radius: known, or between two lengths.

    A dict: found, rmse, residuals (N,), positive outside, what the primitive has ("centre", "radius", "axis", ...: numbers
    or (3,) arrays), and deviations, the standard deviations of these by name."""
    return _core._fit(_to_scan(scan, "scan", mm_per_unit), primitive, radius)


def _scan_as_html(scan: Scan) -> str:
    """Some thousand points, the higher the lighter."""
    points = scan.points[:: max(1, len(scan.points) // 3000)]
    low, high = points.min(axis=0), points.max(axis=0)
    scale = 400.0 / max(float((high - low)[:2].max()), 1e-30)
    dots = [""] * 8
    for x, y, z in (points - low) * scale:
        shade = min(7, int(8.0 * z / max(1e-30, float(high[2] - low[2]) * scale)))
        dots[shade] += f"M{x:.0f},{400.0 - y:.0f}h0"
    paths = "".join(f"<path d='{path}' stroke='hsl(210,40%,{25 + 7 * i}%)' stroke-width='2' stroke-linecap='round'/>"
                    for i, path in enumerate(dots))
    return f"<svg viewBox='0 0 400 400' width='400'>{paths}</svg><br>{_html.escape(repr(scan))}"


def _report_as_html(registration: Registration) -> str:
    import tempfile  # here: it loads compression libraries, which only a notebook needs

    with tempfile.TemporaryDirectory() as folder:
        file = _os.path.join(folder, "report.html")
        registration.report(file)
        with open(file, encoding="utf-8") as page:
            return f'<iframe srcdoc="{_html.escape(page.read())}" width="100%" height="700"></iframe>'


setattr(Scan, "_repr_html_", _scan_as_html)
setattr(Registration, "_repr_html_", _report_as_html)
