"""tolvar: the blocks of an NTFS volume that changed between two of its
Volume Shadow Copy snapshots, through the tolvar shared library.

Standard library only: the library is loaded through ctypes (see
:mod:`tolvar._library` for where it is looked for), and the shadow copies are
listed by the tolvar command (see :mod:`tolvar._listing`).

    import tolvar
    copies = tolvar.list_shadow_copies("volume.img")
    with tolvar.open("volume.img", copies[0].shadow_copy_id, copies[-1].shadow_copy_id) as diff:
        for index, data in diff.changed_blocks():
            ...  # block index: data, diff.block_size bytes from the newer shadow copy
"""

from ._diff import DEFAULT_BLOCK_SIZE, Diff, open
from ._errors import NotFoundError, TolvarError
from ._listing import ShadowCopy, list_shadow_copies

__version__ = "0.1.0"

__all__ = ["DEFAULT_BLOCK_SIZE", "Diff", "NotFoundError", "ShadowCopy", "TolvarError", "list_shadow_copies", "open",
           "__version__"]
