"""The package as installed: where it finds the library and the command, its
version, ``python -m tolvar``, and the README's example."""

import os
import re
import shutil
import sys
from importlib import metadata

import tolvar
from conftest import run, unsanitized_environment

PROBE = "import tolvar, tolvar._library as l; l.load(); print(l.library_path())"


def clean_environment(**settings):
    environment = {key: value for key, value in os.environ.items()
                   if key not in ("TOLVAR_LIBRARY", "TOLVAR_COMMAND", "LD_LIBRARY_PATH")}
    environment.update(settings)
    return environment


def test_the_installed_package_is_the_one_under_test():
    assert "site-packages" in tolvar.__file__


def test_versions_agree_with_the_build(command):
    version = os.environ["TOLVAR_TEST_VERSION"]
    assert tolvar.__version__ == version
    assert metadata.version("tolvar") == version
    assert run([command, "--version"]).stdout == "tolvar %s\n" % version


def test_the_system_loader_finds_the_library(library):
    completed = run([sys.executable, "-c", PROBE],
                    env=clean_environment(LD_LIBRARY_PATH=os.path.dirname(library)))
    assert completed.returncode == 0, completed.stderr
    assert completed.stdout.strip() == "libtolvar.so"


def test_a_library_beside_the_package_comes_before_the_system_loader(library, tmp_path):
    copy = tmp_path / "tolvar"
    shutil.copytree(os.path.dirname(tolvar.__file__), copy)
    shutil.copy(library, copy / "libtolvar.so")
    completed = run([sys.executable, "-c", PROBE], cwd=str(tmp_path),
                    env=clean_environment(LD_LIBRARY_PATH=os.path.dirname(library)))
    assert completed.returncode == 0, completed.stderr
    assert completed.stdout.strip() == str(copy / "libtolvar.so")


def test_tolvar_library_names_the_library_to_load(library, tmp_path):
    copy = tmp_path / "elsewhere.so"
    shutil.copy(library, copy)
    completed = run([sys.executable, "-c", PROBE], env=clean_environment(TOLVAR_LIBRARY=str(copy)))
    assert completed.returncode == 0, completed.stderr
    assert completed.stdout.strip() == str(copy)


def test_no_library_anywhere_is_an_os_error_naming_the_places_tried(tmp_path):
    missing = tmp_path / "missing.so"
    completed = run([sys.executable, "-c", PROBE], env=clean_environment(TOLVAR_LIBRARY=str(missing)))
    assert completed.returncode == 1
    last = completed.stderr.strip().splitlines()[-1]
    assert last.startswith("OSError: the tolvar library could not be loaded: %s: no such file; " % missing)
    assert "libtolvar.so: cannot open shared object file" in last


def test_the_command_beside_the_library_is_found(library, command, tmp_path):
    (tmp_path / "lib").mkdir()
    (tmp_path / "bin").mkdir()
    shutil.copy(library, tmp_path / "lib" / "libtolvar.so")
    shutil.copy(command, tmp_path / "bin" / "tolvar")
    probe = "import tolvar._listing as l; print(l.find_command())"
    completed = run([sys.executable, "-c", probe],
                    env=clean_environment(TOLVAR_LIBRARY=str(tmp_path / "lib" / "libtolvar.so"), PATH="/usr/bin:/bin"))
    assert completed.returncode == 0, completed.stderr
    assert completed.stdout.strip() == str(tmp_path / "bin" / "tolvar")


def test_python_m_tolvar_prints_what_the_command_prints(default_volume, command):
    older, newer = default_volume.ids[0], default_volume.ids[-1]
    for words in (["list", default_volume.path], ["list", default_volume.path, "--json"],
                  ["diff", default_volume.path, older, newer, "--json"], ["--version"], ["frobnicate"]):
        through_python = run([sys.executable, "-m", "tolvar", *words])
        direct = run([command, *words])
        assert (through_python.returncode, through_python.stdout, through_python.stderr) == (
            direct.returncode, direct.stdout, direct.stderr), words


def test_python_m_tolvar_without_a_command_exits_127(tmp_path):
    completed = run([sys.executable, "-m", "tolvar", "list", "x"],
                    env=clean_environment(TOLVAR_COMMAND=str(tmp_path / "none"), PATH=str(tmp_path)))
    assert completed.returncode == 127
    assert completed.stdout == ""
    assert completed.stderr.startswith("tolvar: ")
    assert "the tolvar command was not found (set TOLVAR_COMMAND to its path)" in completed.stderr


def readme_example(root):
    """The Python example of the README: the code block after its marker."""
    with open(os.path.join(root, "README.md")) as handle:
        text = handle.read()
    match = re.search(r"<!-- python example -->\n```python\n(.*?)```", text, re.S)
    assert match, "the README has no marked Python example"
    return match.group(1)


def test_the_readme_example_brings_an_image_up_to_the_newest_snapshot(default_volume, root, tmp_path):
    code = readme_example(root)
    assert len(code.splitlines()) == 5
    os.symlink(default_volume.path, tmp_path / "volume.img")
    shutil.copyfile(default_volume.snapshot_image(0), tmp_path / "restored.img")
    completed = run([sys.executable, "-c", code], cwd=str(tmp_path))
    assert completed.returncode == 0, completed.stderr
    environment = unsanitized_environment()
    compared = run([os.path.join(root, "scripts", "compare-images"), default_volume.manifest_path,
                    str(tmp_path / "restored.img"), default_volume.snapshot_image(-1)], env=environment)
    assert compared.returncode == 0, compared.stdout + compared.stderr
    untouched = run([os.path.join(root, "scripts", "compare-images"), default_volume.manifest_path,
                     default_volume.snapshot_image(0), default_volume.snapshot_image(-1)], env=environment)
    assert untouched.returncode != 0, "the oldest and newest snapshots must differ for the test to mean anything"
