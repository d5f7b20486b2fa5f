"""Diff.file_change_map and Diff.exclude on the file_services volume, whose
newest snapshot rewrote, grew and moved files since the oldest; The Sleuth
Kit reads the files out of the snapshots' captured images."""

import subprocess

import pytest
import tolvar
from conftest import run, unsanitized_environment

BLOCK_SIZE = 4096


def file_bytes(image, path):
    """The file's contents in an NTFS image, through ifind and icat."""
    environment = unsanitized_environment()
    inode = subprocess.check_output(["ifind", "-n", path.lstrip("/"), image], universal_newlines=True,
                                    env=environment).strip()
    return subprocess.check_output(["icat", image, inode], env=environment)


def set_bits(bitmap):
    return {index for index in range(len(bitmap) * 8) if bitmap[index // 8] >> (index % 8) & 1}


@pytest.fixture()
def diff(files_volume):
    with tolvar.open(files_volume.path, files_volume.ids[0], files_volume.ids[-1], block_size=BLOCK_SIZE) as made:
        yield made


@pytest.mark.parametrize("path", ["/part.bin", "/grow.bin", "/moving.bin", "/still.bin"])
def test_every_block_of_a_file_that_reads_differently_is_in_its_map(files_volume, diff, path):
    older = file_bytes(files_volume.snapshot_image(0), path)
    newer = file_bytes(files_volume.snapshot_image(-1), path)
    def piece(data, block):
        return data[block * BLOCK_SIZE:(block + 1) * BLOCK_SIZE]
    differing = {block for block in range((len(newer) + BLOCK_SIZE - 1) // BLOCK_SIZE)
                 if piece(older, block) != piece(newer, block)}
    change_map = diff.file_change_map(path)
    assert len(change_map) == ((len(newer) + BLOCK_SIZE - 1) // BLOCK_SIZE + 7) // 8
    assert differing <= set_bits(change_map)
    if path == "/still.bin":
        assert not differing


def test_the_map_is_the_one_filemap_prints(files_volume, diff, command):
    import json
    completed = run([command, "filemap", files_volume.path, files_volume.ids[0], files_volume.ids[-1], "/part.bin",
                     "--block-size", str(BLOCK_SIZE), "--json"])
    assert completed.returncode == 0, completed.stderr
    report = json.loads(completed.stdout)
    bits = set_bits(diff.file_change_map("/part.bin"))
    assert report["changed_blocks"] == len(bits) > 0
    assert {block for first, last in report["ranges"] for block in range(first, last + 1)} == bits


def test_exclude_makes_a_handle_without_the_files_blocks(files_volume, diff, command, tmp_path):
    before = set_bits(diff.bitmap)
    with diff.exclude(["/part.bin", "/moving.bin"]) as reduced:
        assert isinstance(reduced, tolvar.Diff)
        after = set_bits(reduced.bitmap)
        walked = {index for index, _ in reduced.changed_blocks()}
    assert after < before
    assert walked == after
    out = tmp_path / "bitmap"
    completed = run([command, "diff", files_volume.path, files_volume.ids[0], files_volume.ids[-1], "--block-size",
                     str(BLOCK_SIZE), "--exclude", "/part.bin", "--exclude", "/moving.bin", "--bitmap-out",
                     str(out)])
    assert completed.returncode == 0, completed.stderr
    assert set_bits(out.read_bytes()) == after
    # Both handles share the bitmap: the first one sees the bits cleared too.
    assert set_bits(diff.bitmap) == after
