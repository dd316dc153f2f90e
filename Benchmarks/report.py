"""Measures, and writes Docs/performance.md from performance.md beside this file; scripts/benchmark runs it."""

import json
import os
import platform
import re
import shlex
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/benchmark"
KEPT = ROOT / "output/benchmark"
BLUR = BUILD / "Program/bilateral-blur"
FRAME = [BUILD / "Benchmarks/Frame/frame_benchmark", BUILD / "Bridges/frei0r/bilateral_blur.so"]
KERNEL = [BUILD / "Benchmarks/Kernel/kernel_benchmark"]
CORES = len(os.sched_getaffinity(0))
IMAGES = ("photograph", "noise")


def runs(name, program, pattern, seconds, repetitions, *options):
    """The rows of a benchmark program that match the pattern, and its standard output. The JSON is kept as NAME.json."""
    print("measuring", name, file=sys.stderr)
    kept = KEPT / f"{name}.json"
    kept.unlink(missing_ok=True)
    done = subprocess.run(
        ["timeout", "300", *program, f"--benchmark_filter={pattern}", f"--benchmark_min_time={seconds}",
         f"--benchmark_repetitions={repetitions}", *options, f"--benchmark_out={kept}", "--benchmark_out_format=json"],
        capture_output=True, text=True)
    if done.returncode:
        print(f"not measured: {name}: {done.stderr[-300:]}", file=sys.stderr)
        return [], done.stdout
    rows = json.loads(kept.read_text())["benchmarks"]
    for row in rows:
        row["name"] = re.sub("/(process_time|real_time)", "", row["run_name"])
    return rows, done.stdout


def benchmark(name, program, pattern, seconds, repetitions):
    """The rows that `runs` gives, by name, medians where it repeats, and its standard output."""
    rows, output = runs(name, program, pattern, seconds, repetitions)
    wanted = "median" if repetitions > 1 else ""
    return {row["name"]: row for row in rows if row.get("aggregate_name", "") == wanted}, output


def least_times():
    """The least CPU time of Bilateral Smooth and its peer on one thread in ms, by name; both take turns."""
    one_core = ["taskset", "--cpu-list", str(min(os.sched_getaffinity(0))), *KERNEL]
    times = {}
    for radius, repetitions in ((5, 6), (14, 2), (29, 1)):
        rows, _ = runs(f"smooth{radius}", one_core, f"^(smooth|opencv)(8|16|Float)/.*/radius:{radius}(/|$)", 0.01,
                       repetitions, "--benchmark_enable_random_interleaving=true")
        for row in rows:
            if row["run_type"] == "iteration":
                name = row["name"].removesuffix("/threads:1")
                times[name] = min(times.get(name, row["cpu_time"]), row["cpu_time"])
    return times


def least(times, *command, **environment):
    """The least seconds that the whole command took, and its largest peak of memory in MB."""
    print("measuring", shlex.join(map(str, command[:8])), file=sys.stderr)
    seconds, peaks = [], []
    for _ in range(times):
        begun = time.monotonic()
        child = subprocess.Popen(["timeout", "100", *command], env=os.environ | environment, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        errors = child.stderr.read()
        _, status, usage = os.wait4(child.pid, 0)
        if status:
            print(f"not measured: {errors[-300:]}", file=sys.stderr)
            return None, None
        seconds.append(time.monotonic() - begun)
        peaks.append(usage.ru_maxrss / 1024)
    return min(seconds), max(peaks)


def cell(form, value, divisor=1):
    """The quotient in that format; "-" where one is missing."""
    return "-" if value is None or not divisor else format(value / divisor, form)


def table(*rows):
    """The rows as a table, the first of them its head."""
    rows = [rows[0], ["---"] * len(rows[0]), *rows[1:]]
    return "\n".join("| " + " | ".join(map(str, row)) + " |" for row in rows)


class Figures:
    """What the benchmark programs measured, by a benchmark's name."""

    def __init__(self):
        self.rows = {}
        self.least = least_times()
        self.renderer = "-"
        for name, program, pattern, seconds, repetitions in (
                ("frame", FRAME, "^(copy|filter)/.*/1920x1080/", 0.5, 3),
                ("opencv", KERNEL, "^opencv_", 0.3, 3),
                ("best", KERNEL, "^best/", 0.3, 3),
                ("targets", KERNEL, "^[A-Z0-9_]+/", 0.2, 3),
                ("gpu", FRAME, "^gpu/.*/1920x1080/scale:(0|10)/", 0.1, 1)):
            rows, output = benchmark(name, program, pattern, seconds, repetitions)
            self.rows |= rows
            if named := re.search("^OpenGL Renderer: *(.*)", output, re.M):
                self.renderer = named[1]

    def of(self, name, column="real_time"):
        return self.rows.get(name, {}).get(column)

    def taps(self, name):
        return cell(".1f", self.of(name, "items_per_second"), 1e9)


def frames(figures):
    rows = [["Image", "Scale", "Filter", "Copies", "OpenCV", "Times"]]
    for image in IMAGES:
        for scale in (0, 10, 20, 30, 60):
            where = f"{image}/1920x1080/scale:{scale}"
            ours, theirs = figures.of(f"filter/{where}"), figures.of(f"opencv_bilateralFilter/{where}")
            rows.append([image, scale, cell(".1f", ours), cell(".0f", ours, figures.of(f"copy/{image}/1920x1080")),
                         cell(".1f", theirs), cell(".1f", theirs, ours)])
    return table(*rows)


def smooth(figures):
    rows = [["Depth", "Image", "Radius", "Bilateral Smooth", "OpenCV", "Times"]]
    for depth, key in (("8 bits", "8"), ("16 bits", "16"), ("float", "Float")):
        for image, what in (("photograph", "photograph"), ("opaque_noise", "noise"),
                              ("noise", "noise, alpha varies")):
            for radius in (5, 14, 29):
                where = f"{image}/1920x1080/radius:{radius}"
                ours, theirs = figures.least.get(f"smooth{key}/{where}"), figures.least.get(f"opencv{key}/{where}")
                rows.append([depth, what, radius, cell(".0f", ours), cell(".0f", theirs), cell(".1f", theirs, ours)])
    return table(*rows)


def sizes(figures):
    rows = [["Size", "Scale", "Photograph, ms", "G taps/s", "Noise, ms", "G taps/s"]]
    for size, scale in (("640x360", 30), ("1920x1080", 10), ("1920x1080", 20), ("1920x1080", 30), ("1920x1080", 60),
                        ("3840x2160", 30)):
        row = [size, scale]
        for image in IMAGES:
            name = f"best/{image}/{size}/scale:{scale}/threads:{CORES}"
            row += [cell(".1f", figures.of(name)), figures.taps(name)]
        rows.append(row)
    return table(*rows)


def targets(figures):
    rows = [["Instruction set", "Photograph", "Noise"]]
    for target in ("best", "AVX3_DL", "AVX3", "AVX2", "SSE4", "SSSE3", "SCALAR"):
        rows.append([target, *(figures.taps(f"{target}/{image}/640x360/scale:29/threads:{CORES}")
                               for image in IMAGES)])
    return table(*rows, ["OpenCV", *(figures.taps(f"opencv_bilateralFilter/{image}/640x360/scale:29")
                                     for image in IMAGES)])


def instructions(figures):
    share = figures.of(f"AVX3_DL/noise/640x360/scale:29/threads:{CORES}", "of_rate")
    return "AVX3_DL wasn't measured: this processor doesn't have it." if share is None else \
        f"""Counting all vector instructions of the inner loop, multiply-adds and others, AVX3_DL filters the noise at
{share:.0%} of the rate at which a core does nothing but multiply-adds."""


def stages(figures):
    rows = [["Image", "Scale", "Frame", "Upload", "Blur pass", "Resolve and screen pass", "Download"]]
    for image in IMAGES:
        for scale in (0, 10):
            name = f"gpu/{image}/1920x1080/scale:{scale}"
            rows.append([image, scale, *(cell(".1f", figures.of(name, column)) for column in
                                           ("real_time", "upload_ms", "pass_ms", "resolve_ms", "download_ms"))])
    return table(*rows)


def programs(figures, work):
    """Runs programs on files in the directory `work`."""
    ffmpeg = ["ffmpeg", "-v", "error", "-nostdin", "-y"]
    sample, clip, out = ROOT / "Docs/images/sample.png", work / "clip.mp4", work / "out.png"
    for source, options in (
            (["-i", sample], ["-vf", "scale=1920:1080", work / "photograph.png"]),
            (["-i", sample], ["-vf", "scale=64:64", work / "small.png"]),
            (["-loop", "1", "-i", sample], ["-vf", "scale=2160:-1,crop=1920:1080:n:n", "-frames:v", "120",
                                            "-c:v", "mpeg4", "-q:v", "3", clip]),
            (["-f", "lavfi", "-i", "testsrc2=size=1920x1080"], ["-frames:v", "100", work / "frame-%04d.png"])):
        subprocess.run([*ffmpeg, *source, *options], check=True)

    rows = [["Command", "Measured", "Value"]]
    command = "`ffmpeg`, MPEG-4 clip, 120 frames of 1920 x 1080, to null"
    for what, filters in (("no filter", "format=rgba"), ("scale 10", f"frei0r=bilateral_blur:{10 / 60}"),
                          ("scale 20", f"frei0r=bilateral_blur:{20 / 60}")):
        seconds, _ = least(3, *ffmpeg, "-i", clip, "-vf", filters, "-f", "null", "-",
                           FREI0R_PATH=str(BUILD / "Bridges/frei0r"))
        rows.append([command, f"frames a second, {what}", cell(".1f", seconds and 120, seconds)])
        command = ""

    blur = [BLUR, "--quiet"]
    options = ["--blur-scale", "20"]
    seconds, _ = least(2, *blur, work / "frame-####.png", work / "blurred-####.png", *options)
    filtered = figures.of("filter/photograph/1920x1080/scale:20")
    rows += [["`bilateral-blur`, 100 PNG frames of 1920 x 1080 (a test chart), scale 20", "seconds",
              cell(".2f", seconds)],
             ["", "times the filter's time for 100 photographs at that scale",
              cell(".2f", seconds, filtered and filtered / 10)]]
    fast, _ = least(2, *blur, work / "frame-####.png", work / "blurred-####.png", *options, "--compression", "1")
    rows += [["the same with `--compression 1`", "seconds", cell(".2f", fast)],
             ["", "times the filter's time", cell(".2f", fast, filtered and filtered / 10)]]
    # Where there is no GPU the program would load no OpenGL.
    _, with_gl = least(3, *blur, work / "photograph.png", out, *options,
                       __EGL_VENDOR_LIBRARY_DIRS="/usr/share/glvnd/egl_vendor.d")
    _, without = least(3, *blur, work / "photograph.png", out, *options,
                       __EGL_VENDOR_LIBRARY_FILENAMES="/nonexistent")
    rows += [["`bilateral-blur`, one PNG of 1920 x 1080", "peak memory, MB, with OpenGL", cell(".0f", with_gl)],
             ["", "peak memory, MB, without OpenGL", cell(".0f", without)]]
    start, _ = least(20, BLUR, "--version")
    rows += [["`bilateral-blur --version`", "seconds", cell(".3f", start)],
             ["`bilateral-blur --help`", "times that", cell(".1f", least(20, BLUR, "--help")[0], start)],
             ["`bilateral-blur`, one PNG of 64 x 64", "times that",
              cell(".1f", least(20, *blur, work / "small.png", out, *options)[0], start)]]
    return table(*rows)


def plot(figures, work):
    """The plot as a PNG in the directory `work`."""
    lines = {}
    for name, what in (("OpenCV bilateralFilter", "opencv_bilateralFilter"), ("Bilateral Blur", "filter")):
        for image in reversed(IMAGES):
            lines[f"{name}, {image}"] = "".join(
                f"{scale} {cell('f', figures.of(f'{what}/{image}/1920x1080/scale:{scale}'))}\n"
                for scale in (10, 20, 30, 60))
    data = "".join(f"{points}e\n" for points in lines.values())
    curves = ", ".join(f'"-" using 1:2 with linespoints lw 2 title "{title}"' for title in lines)
    subprocess.run(["gnuplot"], check=True, text=True, input=f"""
set terminal pngcairo size 900,520 font "sans,11"
set output "{work / "plot.png"}"
set datafile missing "-"
set title "A frame of 1920 x 1080, 8-bit RGBA, {CORES} cores"
set xlabel "Blur Scale"
set ylabel "milliseconds"
set logscale y
set xrange [0:65]
set yrange [1:*]
set grid
set key top left
plot {curves}
{data}""")
    return work / "plot.png"


def machine():
    model = re.search("^model name.*: (.*)", Path("/proc/cpuinfo").read_text(), re.M)
    compiler = subprocess.run([os.environ.get("CXX", "c++"), "--version"], capture_output=True, text=True).stdout
    return f"{model[1] if model else platform.machine()}, {CORES} cores, Linux {platform.release()}, " \
           f"{compiler.splitlines()[0]}"


def main():
    KEPT.mkdir(parents=True, exist_ok=True)
    figures = Figures()
    noise = f"best/noise/1920x1080/scale:60/threads:"
    with tempfile.TemporaryDirectory() as directory:
        work = Path(directory)
        page = (Path(__file__).parent / "performance.md").read_text().format(
            machine=machine(), cores=CORES, renderer=figures.renderer, frames=frames(figures), smooth=smooth(figures),
            sizes=sizes(figures), targets=targets(figures), stages=stages(figures), programs=programs(figures, work),
            scaling=cell(".2f", figures.of(noise + "1"), figures.of(f"{noise}{CORES}")),
            instructions=instructions(figures))
        image = plot(figures, work).read_bytes()
    (ROOT / "Docs/performance.md").write_text(page)
    (ROOT / "Docs/images/benchmark.png").write_bytes(image)
    print("Written: Docs/performance.md, Docs/images/benchmark.png")


main()
