#!/usr/bin/python3
"""Checks path lookup and NTFS files against The Sleuth Kit on one volume.

For every regular file that `fls -r` lists (its unnamed data stream, not
deleted), the lower-case path is looked up through the query program:
 - it is found exactly when the lookup rules say so: each component must
   equal the ASCII-lower-cased preferred name of its record (POSIX, then
   Win32, then Win32 and DOS, then DOS namespace, first by attribute id),
   so a component that keeps an upper-case letter never matches;
 - IsResident, IsCompressed, IsSparse and GetSize agree with istat;
 - GetExtents covers the runs that istat -r lists;
 - the bytes read through NtfsFile::Read equal icat's, or, where the readers
   knowingly read otherwise, what the extents say they read.
Every file is looked up (a sample of TOLVAR_LOOKUP_SAMPLE per large
directory when that is set). Files outside directories of more than
SAMPLE_LIMIT files are also checked in depth; inside them, an evenly spread
sample of DEEP_COUNT files is (each in-depth check runs istat and icat).

Usage: check_ntfs_lookup.py QUERY_PROGRAM IMAGE SECTOR WORKDIR
Exit status: 0 pass, 1 failure, 77 skipped (a tool is missing).
"""
import os
import re
import shutil
import struct
import subprocess
import sys

SAMPLE_LIMIT = 100   # directories with more regular files than this are sampled
# Files looked up per sampled directory: all of them, unless the environment
# asks for a sample (the unoptimised sanitizer build, where a lookup in a
# 2,000-entry directory costs tens of milliseconds).
LOOKUP_COUNT = int(os.environ.get("TOLVAR_LOOKUP_SAMPLE", 1 << 30))
DEEP_COUNT = 25      # files checked in depth per sampled directory
DOS_NAMESPACE = 2
NAMESPACE_ORDER = (0, 1, 3, 2)


def run(args, binary=False):
    out = subprocess.run(args, check=True, stdout=subprocess.PIPE).stdout
    return out if binary else out.decode('utf-8', 'surrogateescape')


def ascii_lower(text):
    return ''.join(chr(ord(c) + 32) if 'A' <= c <= 'Z' else c for c in text)


class Volume:
    def __init__(self, image, sector):
        self.image = image
        self.sector = sector
        with open(image, 'rb') as f:
            f.seek(sector * 512)
            boot = f.read(512)
        self.bytes_per_sector = struct.unpack_from('<H', boot, 11)[0]
        self.cluster = self.bytes_per_sector * boot[13]
        self.length = self.bytes_per_sector * struct.unpack_from('<Q', boot, 40)[0]
        per_record = struct.unpack_from('<b', boot, 64)[0]
        self.record_size = per_record * self.cluster if per_record > 0 else 1 << -per_record
        self.mft = run(['icat', '-o', str(sector), image, '0'], binary=True)
        self.extensions = {}
        for number in range(len(self.mft) // self.record_size):
            base = self.base_record(number)
            if base:
                self.extensions.setdefault(base, []).append(number)

    def record(self, inode):
        """The fixed-up bytes of a record, or None when it is not a file record."""
        record = bytearray(self.mft[inode * self.record_size:(inode + 1) * self.record_size])
        if len(record) < 48 or record[:4] != b'FILE':
            return None
        usa_offset, usa_count = struct.unpack_from('<HH', record, 4)
        for i in range(1, usa_count):
            end = i * self.bytes_per_sector
            if end <= len(record):
                record[end - 2:end] = record[usa_offset + 2 * i:usa_offset + 2 * i + 2]
        return record

    def base_record(self, inode):
        record = self.mft[inode * self.record_size:inode * self.record_size + 48]
        if len(record) < 48 or record[:4] != b'FILE' or not (record[22] & 1):
            return 0
        low, high = struct.unpack_from('<IH', record, 32)
        base = low | (high << 32)
        return base if base != inode else 0

    def tsk(self, tool, *args, binary=False):
        return run([tool, '-o', str(self.sector), self.image] + list(args), binary=binary)

    def names(self, inode):
        """(attribute id, namespace, name) of the file name attributes of a
        record and of its extension records."""
        found = []
        for number in [inode] + self.extensions.get(inode, []):
            record = self.record(number)
            if record is None:
                continue
            position = struct.unpack_from('<H', record, 20)[0]
            while position + 24 <= len(record):
                kind, length = struct.unpack_from('<II', record, position)
                if kind == 0xFFFFFFFF or length == 0:
                    break
                if kind == 0x30 and record[position + 8] == 0:
                    value = position + struct.unpack_from('<H', record, position + 0x14)[0]
                    count, namespace = record[value + 64], record[value + 65]
                    name = record[value + 66:value + 66 + 2 * count].decode('utf-16-le', 'surrogatepass')
                    found.append((struct.unpack_from('<H', record, position + 0x0E)[0], namespace, name))
                position += length
        return found

    def resident_data_flags(self, inode):
        """(compressed, sparse) from the header of the record's resident unnamed data attribute."""
        record = self.record(inode)
        position = struct.unpack_from('<H', record, 20)[0] if record else len(self.mft)
        while record and position + 24 <= len(record):
            kind, length = struct.unpack_from('<II', record, position)
            if kind == 0xFFFFFFFF or length == 0:
                break
            if kind == 0x80 and record[position + 8] == 0 and record[position + 9] == 0:
                flags = struct.unpack_from('<H', record, position + 12)[0]
                return bool(flags & 0x0001), bool(flags & 0x8000)
            position += length
        return None

    def preferred_name(self, inode):
        names = sorted(self.names(inode), key=lambda n: n[0])
        for namespace in NAMESPACE_ORDER:
            for _, ns, name in names:
                if ns == namespace:
                    return name
        return ''


def listing(volume):
    """Regular files (path -> inode) and every listed path's inode."""
    files = {}
    inodes = {'': 5}
    for line in volume.tsk('fls', '-r', '-p').splitlines():
        match = re.match(r'^(\S+) (\* )?(\d+)(-(\d+)-(\d+))?:\t(.*)$', line)
        if not match or match.group(2):
            continue
        kind, inode, attr_type, path = match.group(1), int(match.group(3)), match.group(5), match.group(7)
        if path.startswith('$OrphanFiles'):
            continue
        if ':' in path.rsplit('/', 1)[-1]:
            continue  # a named stream
        inodes[path] = inode
        if kind == 'r/r' and attr_type == '128':
            files[path] = inode
    return files, inodes


def expected_found(volume, inodes, path):
    parts = path.split('/')
    for i, part in enumerate(parts):
        inode = inodes.get('/'.join(parts[:i + 1]))
        if inode is None or ascii_lower(volume.preferred_name(inode)) != part.lower():
            return False
    return True


def data_attribute(istat):
    """Flags, size and runs of the unnamed data attribute in istat -r output."""
    lines = istat.splitlines()
    for i, line in enumerate(lines):
        match = re.match(r'^Type: \$DATA \(128-\d+\)\s+Name: N/A\s+(.*?)\s+size: (\d+)\s+init_size: (\d+)', line) or \
            re.match(r'^Type: \$DATA \(128-\d+\)\s+Name: N/A\s+(.*?)\s+size: (\d+)()', line)
        if not match:
            continue
        flags = match.group(1)
        runs = []
        for run_line in lines[i + 1:]:
            run_match = re.match(r'^\s+Starting address: (\S+), length: (\d+)\s*(Sparse)?', run_line)
            if not run_match:
                break
            start = None if run_match.group(1) == 'X' else int(run_match.group(1))
            runs.append((start, int(run_match.group(2))))
        return {
            'resident': not flags.startswith('Non-Resident'),
            'compressed': 'Compressed' in flags,
            'sparse': 'Sparse' in flags,
            'size': int(match.group(2)),
            'init_size': int(match.group(3)) if match.group(3) else int(match.group(2)),
            'runs': runs,
        }
    return None


def parse_extents(text):
    if text == '-':
        return []
    return [tuple(int(v) for v in item.split(':')) for item in text.split(',')]


def lznt1_chunk(data, out, capacity, position, cluster):
    """Decodes one LZNT1 chunk of data onto out (which holds the unit's
    output so far); returns the bytes consumed."""
    if len(data) < 2:
        return 0
    header = struct.unpack_from('<H', data, 0)[0]
    length = (header & 0x0FFF) + 3
    if header == 0:
        return cluster - position % cluster
    if len(data) < length:
        return 0
    if not header & 0x8000:
        out += data[2:2 + (header & 0x0FFF) + 1][:capacity - len(out)]
        return length
    start = len(out)
    at = 2
    while at < length:
        flags = data[at]
        at += 1
        for bit in range(8):
            if at >= length or len(out) >= capacity:
                return length
            if not flags & (1 << bit):
                out.append(data[at])
                at += 1
                continue
            if at + 1 >= len(data):
                return length
            word = struct.unpack_from('<H', data, at)[0]
            at += 2
            p = len(out) - start
            k = 0
            v = p - 1 if p else 0
            while v >= 16:
                v >>= 1
                k += 1
            k = min(k, 12)
            displacement = (word >> (12 - k)) + 1
            for _ in range((word & (0x0FFF >> k)) + 3):
                if len(out) >= capacity:
                    return length
                here = len(out)
                out.append(out[here - displacement] if displacement <= here else 0)
    return length


def lznt1_unit(stored, unit, offset, cluster):
    out = bytearray()
    consumed = 0
    while consumed < len(stored):
        before = len(out)
        used = lznt1_chunk(stored[consumed:], out, unit, before + offset, cluster)
        if used == 0:
            break
        consumed += used
        if len(out) == unit:
            break
    return bytes(out)


def extent_model(volume, extents, size, compressed):
    """The bytes that one Read of the whole file gives by the readers' own
    rules: runs of a plain stream from the volume (not-stored runs as
    zeros); units stored whole from the volume at their offset (offset 0
    included), compressed units expanded from their first byte, a full unit
    counting its whole expansion."""
    unit = volume.cluster << 4 if compressed else 0
    out = bytearray()
    done = 0
    with open(volume.image, 'rb') as f:
        def raw(offset, count):
            f.seek(volume.sector * 512 + offset)
            return f.read(count)
        for logical, offset, stored in extents:
            if done >= size:
                break
            n = min(size - done, logical)
            if not compressed:
                piece = bytes(n) if offset == 0 else raw(offset, n)
                counted = len(piece)
            elif stored == logical:
                piece = raw(offset, n)
                counted = len(piece)
            else:
                data = raw(offset, stored)
                if stored > unit or len(data) != stored:
                    continue
                piece = lznt1_unit(data, unit, offset, volume.cluster)
                counted = len(piece) if logical == unit else min(len(piece), logical)
            out[done:] = piece[:min(counted, size - done)]
            done += counted
    return bytes(out[:min(done, size)])


def listed_data_extents(istat):
    """(attribute id, starting VCN) of the data extents that an attribute
    list names, from istat's attribute list section."""
    return [(int(m.group(1)), int(m.group(2)))
            for m in re.finditer(r'^Type: 128-(\d+) \tMFT Entry: \d+ \tVCN: (\d+)', istat, re.M)]


def split_by_id(volume, path, listed, istat, size, problems):
    """Extents of one data attribute filed under different attribute ids
    become separate attributes (attributes gathered through a list are
    grouped by id, name and type); the file's stream is then the group of
    the lowest id, whose size is the data size only if it starts at VCN 0."""
    lowest = min(i for i, _ in listed)
    starts_at_zero = min(v for i, v in listed if i == lowest) == 0
    expected = istat['size'] if starts_at_zero else 0
    if size != expected:
        problems.append('%s: size is %d; the data extents lie under ids %s, so the rules give %d' %
                        (path, size, sorted(set(i for i, _ in listed)), expected))
    print('  %s: data extents under ids %s, read as the group of id %d (size %d)' %
          (path, sorted(set(i for i, _ in listed)), lowest, size))


def check_file(volume, path, inode, answer, content_path, problems):
    fields = answer.split(' ')
    istat_text = volume.tsk('istat', '-r', str(inode))
    istat = data_attribute(istat_text)
    if istat is None:
        problems.append('%s: istat shows no unnamed data attribute' % path)
        return
    resident, compressed, sparse, size = (fields[1] == '1', fields[2] == '1', fields[3] == '1', int(fields[4]))
    listed = listed_data_extents(istat_text)
    if len(set(i for i, _ in listed)) > 1:
        split_by_id(volume, path, listed, istat, size, problems)
        return
    extents = parse_extents(fields[5])
    if istat['resident']:
        # istat shows no flags for a resident attribute: they come from its header.
        flags = volume.resident_data_flags(inode)
        if flags is not None:
            istat['compressed'], istat['sparse'] = flags
    for name, got in (('resident', resident), ('compressed', compressed), ('sparse', sparse), ('size', size)):
        if got != istat[name]:
            problems.append('%s: %s is %s, istat says %s' % (path, name, got, istat[name]))
    if not resident:
        check_extents(volume, path, extents, istat, problems)
    with open(content_path, 'rb') as f:
        got = f.read()
    oracle = volume.tsk('icat', str(inode), binary=True)
    if got == oracle:
        return
    model = extent_model(volume, extents, size, compressed) if not resident else None
    if model is not None and got == model:
        print('  %s: reads as the readers\' rules say, not as icat (first difference at %d)' %
              (path, first_difference(got, oracle)))
        return
    problems.append('%s: %d bytes read, icat gives %d; first difference at %d%s' %
                    (path, len(got), len(oracle), first_difference(got, oracle),
                     '' if model is None else ', from the readers\' rules at %d' % first_difference(got, model)))


def first_difference(a, b):
    return next((i for i in range(min(len(a), len(b))) if a[i] != b[i]), min(len(a), len(b)))


def check_extents(volume, path, extents, istat, problems):
    """The clusters of the stored extents and of istat's runs (up to the
    data size, cluster 0 excepted: a run there reads as not stored) agree."""
    cluster = volume.cluster
    ours = set()
    for _, offset, stored in extents:
        if offset != 0:
            ours.update(range(offset // cluster, (offset + stored + cluster - 1) // cluster))
    theirs = set()
    vcn = 0
    last_vcn = (istat['size'] + cluster - 1) // cluster
    for start, length in istat['runs']:
        if start:
            theirs.update(start + i for i in range(length) if vcn + i < last_vcn)
        vcn += length
    if istat['compressed']:
        # Units keep their stored clusters; a unit's stored size may round
        # within its last cluster.
        missing = theirs - ours
    else:
        missing = theirs.symmetric_difference(ours)
    if missing:
        problems.append('%s: extents and istat runs differ in %d clusters (e.g. %d)' %
                        (path, len(missing), min(missing)))


def main():
    if len(sys.argv) != 5:
        print(__doc__)
        return 2
    query, image, sector, work = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
    for tool in ('fls', 'istat', 'icat'):
        if not shutil.which(tool):
            print('skipped: %s (The Sleuth Kit) is not installed' % tool)
            return 77
    os.makedirs(work, exist_ok=True)
    volume = Volume(image, sector)
    files, inodes = listing(volume)
    by_directory = {}
    for path in sorted(files):
        by_directory.setdefault(os.path.dirname(path), []).append(path)
    lookups = []
    deep = set()
    for directory, members in sorted(by_directory.items()):
        sampled = len(members) > SAMPLE_LIMIT
        looked_up = members[::max(1, len(members) // LOOKUP_COUNT)] if sampled else members
        lookups.extend(looked_up)
        deep.update(looked_up[::max(1, len(looked_up) // DEEP_COUNT)] if sampled else looked_up)
    paths = sorted(lookups)
    requests = []
    for index, path in enumerate(paths):
        out = os.path.join(work, 'content-%d' % index) if path in deep else ''
        requests.append('/' + path.lower() + '\t' + out)
    answers = subprocess.run([query, image, str(sector * 512), str(volume.length)], check=True,
                             input='\n'.join(requests) + '\n', stdout=subprocess.PIPE,
                             universal_newlines=True, errors='surrogateescape').stdout.splitlines()
    problems = []
    if len(answers) != len(paths):
        print('query program answered %d of %d queries' % (len(answers), len(paths)))
        return 1
    found = checked = missed = 0
    for index, path in enumerate(paths):
        expect = expected_found(volume, inodes, path)
        got = answers[index].startswith('1')
        if got != expect:
            problems.append('%s: found %s, the lookup rules say %s' % (path, got, expect))
            continue
        if not got:
            missed += 1
            continue
        found += 1
        if path in deep:
            checked += 1
            check_file(volume, path, files[path], answers[index], os.path.join(work, 'content-%d' % index), problems)
            os.remove(os.path.join(work, 'content-%d' % index))
    print('%s: %d regular files, %d looked up, %d found, %d missed as the rules say, %d checked in depth' %
          (os.path.basename(image), len(files), len(paths), found, missed, checked))
    for problem in problems[:50]:
        print('  ' + problem)
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
