"""Writes into files on the FUSE mount that reach ntfs-3g as the same requests every time.

ntfs-3g writes a file's MFT record (and its parent directory's index entry) once per write
request, and every record write bumps the record's update sequence number. So the bytes of
an image depend on how the kernel cuts a write into FUSE requests. When it copies from a
process's memory it ends a request early wherever a source page is not mapped at that
moment (freshly allocated, zero-filled memory that was never touched, or a page being
migrated); which pages those are depends on the allocator's history and on the machine's
memory, so the same build could give different update sequence numbers from run to run.

Here the data goes into a memory file first and the kernel copies it from there
(sendfile): the source is then the memory file's page cache, which the copy cannot miss,
and every write is cut only at page boundaries of the target file.
"""
import contextlib
import errno
import os

# Bytes handed to the memory file per write call while staging data.
STAGING_CHUNK = 1 << 20


@contextlib.contextmanager
def staged(data=None, size=None):
    """A memory file holding data, or size zero bytes (a hole: no memory is used)."""
    source = os.memfd_create("mkvssimage-source", os.MFD_CLOEXEC)
    try:
        if data is None:
            os.ftruncate(source, size)
        else:
            view = memoryview(data)
            written = 0
            while written < len(view):
                written += os.write(source, view[written:written + STAGING_CHUNK])
        yield source
    finally:
        os.close(source)


def copy_from(descriptor, source, offset, size):
    """Copies size bytes from the start of source into descriptor at offset, inside the kernel."""
    os.lseek(descriptor, offset, os.SEEK_SET)
    sent = 0
    while sent < size:
        count = os.sendfile(descriptor, source, sent, size - sent)
        if count == 0:
            # A target that takes nothing would loop forever; report it as full.
            raise OSError(errno.ENOSPC, os.strerror(errno.ENOSPC))
        sent += count


def pwrite(descriptor, data, offset):
    """Writes data into the open file at offset."""
    with staged(data) as source:
        copy_from(descriptor, source, offset, len(data))


def write_file(path, data):
    """Creates or replaces the file at path with data."""
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
    try:
        pwrite(descriptor, data, 0)
    finally:
        os.close(descriptor)


def write_zeros(path, size):
    """Creates or replaces the file at path with size zero bytes, all of them written."""
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
    try:
        with staged(size=size) as source:
            copy_from(descriptor, source, 0, size)
    finally:
        os.close(descriptor)
