"""Makes NTFS volume images that carry a Volume Shadow Copy store."""
