"""Which Xcode the application can be built with."""

import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
OLDEST = int(re.search(r"\(oldest_xcode (\d+)\)", (ROOT / "CMakeLists.txt").read_text()).group(1))


def configure(folder, xcode):
    """What CMake says when the compiler is that Xcode's."""
    compiler = folder / "clang++"
    compiler.write_text(
        "#!/bin/sh\n"
        "exec clang++ -Wno-builtin-macro-redefined -D__apple_build_version__=1 "
        f'-D__clang_major__={xcode} -D__clang_minor__=3 "$@"\n')
    compiler.chmod(0o755)
    return subprocess.run(
        ["cmake", "-S", ROOT, "-B", folder / "build", "-DBUILD_TESTING=OFF",
         f"-DCMAKE_CXX_COMPILER={compiler}"],
        capture_output=True, text=True)


def test_one_that_is_too_old_is_refused_in_one_sentence(tmp_path):
    done = configure(tmp_path, OLDEST - 1)
    assert done.returncode != 0
    said = " ".join(done.stderr.split())
    assert f"Xcode {OLDEST} or later is needed, but this is Apple's clang {OLDEST - 1}.3." in said
    assert said.count("CMake Error") == 1


def test_the_oldest_is_taken(tmp_path):
    done = configure(tmp_path, OLDEST)
    assert done.returncode == 0, done.stderr


def test_the_guide_names_it():
    assert f"Xcode {OLDEST} or later" in (ROOT / "CONTRIBUTING.md").read_text()
