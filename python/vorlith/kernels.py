"""The library's image kernels on NumPy arrays, checked (see vorlith/checked_kernels.hpp)."""
from ._vorlith import kernels as _kernels

globals().update({name: getattr(_kernels, name) for name in dir(_kernels) if not name.startswith("_")})
__all__ = [name for name in dir(_kernels) if not name.startswith("_")]
