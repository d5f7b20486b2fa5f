"""Facts about an NTFS image, asked of The Sleuth Kit (ifind, istat, icat)."""
import re
import subprocess

# MFT record number of the cluster allocation bitmap ($Bitmap).
BITMAP_RECORD = 6
# Bits of an NTFS file reference that hold the record number.
RECORD_NUMBER_BITS = 48

_ENTRY_LINE = re.compile(r"^Entry:\s+(\d+)\s+Sequence:\s+(\d+)", re.MULTILINE)
_DATA_HEADER = re.compile(r"^Type: \$DATA \(128-\d+\)\s+Name: N/A\s+Non-Resident.*?size: (\d+)")


class NtfsFactsError(Exception):
    """A Sleuth Kit tool failed or printed something unexpected."""


def run_tool(arguments):
    completed = subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if completed.returncode != 0:
        raise NtfsFactsError("%s failed: %s" % (" ".join(arguments), completed.stderr.decode(errors="replace")))
    return completed.stdout


def record_number(image, path):
    """MFT record number of a path ("/dir/file") on the volume."""
    output = run_tool(["ifind", "-n", path, image]).decode().strip()
    if not output.isdigit():
        raise NtfsFactsError("ifind found no record for %s: %r" % (path, output))
    return int(output)


def unnamed_data_clusters(image, record):
    """(file reference, allocated size in clusters' bytes, list of clusters) of a file's unnamed $DATA."""
    text = run_tool(["istat", image, str(record)]).decode(errors="replace")
    entry = _ENTRY_LINE.search(text)
    if entry is None:
        raise NtfsFactsError("istat printed no entry line for record %d" % record)
    file_reference = int(entry.group(1)) | (int(entry.group(2)) << RECORD_NUMBER_BITS)
    clusters = []
    in_data = False
    for line in text.splitlines():
        if line.startswith("Type: "):
            in_data = _DATA_HEADER.match(line) is not None
            continue
        if in_data and re.fullmatch(r"[\d ]+", line.strip() or "x"):
            clusters.extend(int(value) for value in line.split())
    if not clusters:
        raise NtfsFactsError("record %d has no non-resident unnamed data" % record)
    return file_reference, clusters


def cluster_runs(clusters):
    """Compresses a cluster list into (first cluster, count) runs."""
    runs = []
    for cluster in clusters:
        if runs and runs[-1][0] + runs[-1][1] == cluster:
            runs[-1] = (runs[-1][0], runs[-1][1] + 1)
        else:
            runs.append((cluster, 1))
    return runs


def cluster_bitmap(image):
    """The volume's cluster allocation bitmap ($Bitmap contents): bit set = cluster in use."""
    return run_tool(["icat", image, str(BITMAP_RECORD)])
