"""tolvar.list_shadow_copies against libvshadow's reading of the same store."""

import datetime

import pyvshadow
import tolvar

FILETIME_EPOCH = datetime.datetime(1601, 1, 1, tzinfo=datetime.timezone.utc)


def vshadow_stores(path):
    volume = pyvshadow.volume()
    volume.open(path)
    stores = [volume.get_store(index) for index in range(volume.number_of_stores)]
    return volume, stores


def test_every_shadow_copy_is_listed_as_libvshadow_reads_it(default_volume):
    copies = tolvar.list_shadow_copies(default_volume.path)
    _, stores = vshadow_stores(default_volume.path)
    assert [(c.shadow_copy_id, c.set_id, c.store_id, c.volume_size) for c in copies] == [
        (s.copy_identifier, s.copy_set_identifier, s.identifier, s.volume_size) for s in stores]


def test_creation_times_are_the_stores_own_in_utc(default_volume):
    copies = tolvar.list_shadow_copies(default_volume.path)
    _, stores = vshadow_stores(default_volume.path)
    expected = [FILETIME_EPOCH + datetime.timedelta(microseconds=s.get_creation_time_as_integer() // 10)
                for s in stores]
    assert [copy.created for copy in copies] == expected
    assert all(copy.created.utcoffset() == datetime.timedelta(0) for copy in copies)


def test_shadow_copies_come_in_creation_order(default_volume):
    copies = tolvar.list_shadow_copies(default_volume.path)
    assert [copy.shadow_copy_id for copy in copies] == default_volume.ids
    assert [copy.created for copy in copies] == sorted(copy.created for copy in copies)


def test_a_path_like_volume_is_accepted(default_volume):
    import pathlib
    assert tolvar.list_shadow_copies(pathlib.Path(default_volume.path)) == tolvar.list_shadow_copies(
        default_volume.path)


def test_creation_time_text_keeps_microseconds():
    from tolvar._listing import parse_time
    assert parse_time("2024-05-06T07:09:09.1234567Z") == datetime.datetime(
        2024, 5, 6, 7, 9, 9, 123456, tzinfo=datetime.timezone.utc)
    assert parse_time("1601-01-01T00:00:00Z") == FILETIME_EPOCH
