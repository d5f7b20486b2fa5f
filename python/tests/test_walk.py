"""tolvar.open: the bitmap, the walk against libvshadow's bytes of the newer
shadow copy, the buffer the walk reuses, and handles' life."""

import itertools

import pytest
import pyvshadow
import tolvar


def set_bits(bitmap):
    return [index for index in range(len(bitmap) * 8) if bitmap[index // 8] >> (index % 8) & 1]


def newer_store(volume, index):
    vshadow = pyvshadow.volume()
    vshadow.open(volume.path)
    return vshadow, vshadow.get_store(index)


@pytest.mark.parametrize("older,newer,block_size", [(0, 2, 65536), (0, 1, 4096), (1, 2, 131072), (2, 2, 65536)])
def test_the_walk_serves_every_set_block_as_libvshadow_reads_it(default_volume, older, newer, block_size):
    vshadow, store = newer_store(default_volume, newer)
    volume_size = default_volume.manifest["volume_size"]
    with tolvar.open(default_volume.path, default_volume.ids[older], default_volume.ids[newer],
                     block_size=block_size) as diff:
        bitmap = diff.bitmap
        assert len(bitmap) == (volume_size // block_size + 7) // 8
        walked = []
        for index, data in diff.changed_blocks():
            expected = store.read_buffer_at_offset(block_size, index * block_size)
            assert bytes(data) == expected, "block %d" % index
            walked.append(index)
    assert walked == set_bits(bitmap)
    assert diff.closed
    if older < newer:
        assert walked, "some blocks changed between the snapshots"
    vshadow.close()


def test_changed_count_is_the_bitmaps_set_bits(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        assert diff.changed_count == len(set_bits(diff.bitmap))
        assert diff.changed_count > 0
        assert diff.block_size == tolvar.DEFAULT_BLOCK_SIZE


def test_one_buffer_serves_every_block_of_a_walk(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        first, second = itertools.islice(diff.changed_blocks(), 2)
    assert isinstance(first[1], memoryview)
    assert first[1].obj is second[1].obj


def test_copy_gives_each_block_bytes_of_its_own(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        blocks = list(diff.changed_blocks(copy=True))
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        again = [(index, bytes(data)) for index, data in diff.changed_blocks()]
    assert all(isinstance(data, bytes) for _, data in blocks)
    assert blocks == again


def test_compare_serves_no_more_blocks_than_the_plain_walk(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        plain = [index for index, _ in diff.changed_blocks()]
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        compared = [index for index, _ in diff.changed_blocks(compare=True)]
    assert set(compared) <= set(plain)


def test_a_handle_walks_once(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        assert len(list(diff.changed_blocks())) == diff.changed_count
        assert list(diff.changed_blocks()) == []


def test_the_extra_pass_keeps_every_block_of_the_plain_bitmap(default_volume):
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1]) as diff:
        plain = set(set_bits(diff.bitmap))
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1], extra_pass=True) as diff:
        extra = set(set_bits(diff.bitmap))
    assert plain <= extra


def test_the_bitmap_is_the_commands(default_volume, command, work, tmp_path):
    from conftest import run
    out = tmp_path / "bitmap"
    completed = run([command, "diff", default_volume.path, default_volume.ids[0], default_volume.ids[-1],
                     "--block-size", "16384", "--bitmap-out", str(out)])
    assert completed.returncode == 0, completed.stderr
    with tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1], block_size=16384) as diff:
        assert diff.bitmap == out.read_bytes()


def test_a_closed_handle_refuses_every_call(default_volume):
    diff = tolvar.open(default_volume.path, default_volume.ids[0], default_volume.ids[-1])
    diff.close()
    diff.close()
    for call in (lambda: diff.bitmap, lambda: next(diff.changed_blocks()), lambda: diff.exclude(["/x"]),
                 lambda: diff.file_change_map("/x")):
        with pytest.raises(ValueError, match="closed"):
            call()
