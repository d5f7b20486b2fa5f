#!/usr/bin/python3
"""Copies one partition of a sparse disk image into a sparse volume file,
reading only the image's data extents:
    extract_partition.py IMAGE OFFSET LENGTH VOLUME
Does nothing when VOLUME is newer than IMAGE and has the length."""
import os
import sys


def main():
    image, offset, length, volume = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4]
    if (os.path.exists(volume) and os.path.getsize(volume) == length
            and os.path.getmtime(volume) >= os.path.getmtime(image)):
        return
    partial = volume + ".partial"
    with open(image, "rb") as source, open(partial, "wb") as target:
        target.truncate(length)
        position = offset
        end = offset + length
        while position < end:
            try:
                data_start = os.lseek(source.fileno(), position, os.SEEK_DATA)
            except OSError:
                break  # only a hole is left
            if data_start >= end:
                break
            data_end = min(os.lseek(source.fileno(), data_start, os.SEEK_HOLE), end)
            source.seek(data_start)
            target.seek(data_start - offset)
            remaining = data_end - data_start
            while remaining:
                chunk = source.read(min(remaining, 1 << 22))
                target.write(chunk)
                remaining -= len(chunk)
            position = data_end
    os.replace(partial, volume)


if __name__ == "__main__":
    main()
