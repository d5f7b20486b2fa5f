"""Every failure path: the exception, its status and the error queue's
records, oldest first."""

import os
import shutil

import pytest
import tolvar

UNKNOWN_ID = "00000000-0000-0000-0000-000000000001"
NO_START = [(13, "Failed build snapshot sequence. Start snapshot not find"), (12, "Failed to get snapshot sequence")]
NO_END = [(14, "Failed build snapshot sequence. End snapshot not find"), (12, "Failed to get snapshot sequence")]


@pytest.fixture()
def blank(tmp_path):
    path = tmp_path / "blank.img"
    with open(path, "wb") as handle:
        handle.truncate(1 << 20)
    return str(path)


def missing_volume_records(path):
    return [(1, "Open file(%s) failed - 2." % path), (1, "Can't open volume %s" % path)]


def blank_volume_records(path):
    return [(12, "Invalid vss volume guid"), (12, "Invalid storage with empty guid"),
            (1, "Can't open volume %s" % path)]


def test_a_missing_volume_is_not_found(default_volume, tmp_path):
    missing = str(tmp_path / "missing.img")
    with pytest.raises(tolvar.NotFoundError) as raised:
        tolvar.open(missing, default_volume.ids[0], default_volume.ids[1])
    assert (raised.value.status, raised.value.messages) == (-2, missing_volume_records(missing))
    assert isinstance(raised.value, FileNotFoundError)
    assert str(raised.value) == ("Init returned -2: error 1: Open file(%s) failed - 2.; "
                                 "error 1: Can't open volume %s" % (missing, missing))


def test_a_volume_without_a_store_fails(default_volume, blank):
    with pytest.raises(tolvar.TolvarError) as raised:
        tolvar.open(blank, default_volume.ids[0], default_volume.ids[1])
    assert type(raised.value) is tolvar.TolvarError
    assert (raised.value.status, raised.value.messages) == (-2, blank_volume_records(blank))


@pytest.mark.parametrize("which", ["older", "newer", "reversed", "malformed"])
def test_a_shadow_copy_not_in_the_store_is_not_found(default_volume, which):
    ids = default_volume.ids
    older, newer, expected = {"older": (UNKNOWN_ID, ids[1], NO_START), "newer": (ids[0], UNKNOWN_ID, NO_END),
                              "reversed": (ids[2], ids[0], NO_END), "malformed": ("xyz", ids[1], NO_START)}[which]
    with pytest.raises(tolvar.NotFoundError) as raised:
        tolvar.open(default_volume.path, older, newer)
    assert (raised.value.status, raised.value.messages) == (-2, expected)


@pytest.mark.parametrize("block_size", [0, 2048, 5000, 262144])
def test_a_block_size_out_of_range_fails_with_no_record(default_volume, block_size):
    with pytest.raises(tolvar.TolvarError) as raised:
        tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[1], block_size=block_size)
    assert type(raised.value) is tolvar.TolvarError
    assert (raised.value.status, raised.value.messages, str(raised.value)) == (-2, [], "Init returned -2")


def test_excluding_a_path_not_in_the_volume_is_not_found_and_leaves_the_bitmap(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        before = diff.bitmap
        with pytest.raises(tolvar.NotFoundError) as raised:
            diff.exclude(["/no such file.bin"])
        assert raised.value.status == -3
        assert raised.value.messages and all(code == 3 for code, _ in raised.value.messages)
        assert str(raised.value).startswith("ExcludeFiles returned -3: error 3: ")
        assert diff.bitmap == before


def test_the_map_of_a_path_not_in_the_volume_is_not_found(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        with pytest.raises(tolvar.NotFoundError) as raised:
            diff.file_change_map("/no such file.bin")
    assert raised.value.status == -3
    assert raised.value.messages and all(code == 3 for code, _ in raised.value.messages)
    assert str(raised.value).endswith(" more)")


def test_a_block_that_cannot_be_read_ends_the_walk_with_an_error(default_volume, tmp_path):
    copy = str(tmp_path / "volume.img")
    shutil.copyfile(default_volume.path, copy)
    with tolvar.open(copy, default_volume.ids[0], default_volume.ids[-1]) as diff:
        os.truncate(copy, 8 << 20)
        with pytest.raises(tolvar.TolvarError) as raised:
            for _ in diff.changed_blocks():
                pass
    assert (raised.value.status, raised.value.messages) == (-1, [(1, "Failed read cluster, position 0")])


def test_listing_a_missing_volume_is_not_found(tmp_path):
    missing = str(tmp_path / "missing.img")
    with pytest.raises(tolvar.NotFoundError) as raised:
        tolvar.list_shadow_copies(missing)
    assert (raised.value.status, raised.value.messages) == (-2, [(1, "Open file(%s) failed - 2." % missing)])
    assert str(raised.value) == "tolvar list exited 6: error 1: Open file(%s) failed - 2." % missing


def test_listing_a_volume_without_a_store_fails(blank):
    with pytest.raises(tolvar.TolvarError) as raised:
        tolvar.list_shadow_copies(blank)
    assert type(raised.value) is tolvar.TolvarError
    assert (raised.value.status, raised.value.messages, str(raised.value)) == (
        -2, [], "%s holds neither an NTFS volume nor a partition table" % blank)


def test_listing_without_a_command_fails(default_volume, monkeypatch, tmp_path):
    monkeypatch.setenv("TOLVAR_COMMAND", str(tmp_path / "none"))
    monkeypatch.setenv("PATH", str(tmp_path))
    monkeypatch.setattr(tolvar._library, "library_path", lambda: "libtolvar.so")
    with pytest.raises(tolvar.TolvarError) as raised:
        tolvar.list_shadow_copies(default_volume.path)
    assert (raised.value.status, raised.value.messages, str(raised.value)) == (
        -2, [], "the tolvar command was not found (set TOLVAR_COMMAND to its path)")
