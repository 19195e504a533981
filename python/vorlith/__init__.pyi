from typing import Literal, Optional, Tuple

import numpy as np
import numpy.typing as npt

from . import kernels as kernels

__version__: str

class Upscaler:
    def __init__(self, network: Literal["full", "light", "auto"] = "auto", threads: int = 0,
                 models: Optional[str] = None) -> None: ...
    def enlarge(self, y: npt.NDArray[np.uint8]) -> npt.NDArray[np.uint8]: ...
    def enlarge_nv12(self, y: npt.NDArray[np.uint8],
                     uv: npt.NDArray[np.uint8]) -> Tuple[npt.NDArray[np.uint8], npt.NDArray[np.uint8]]: ...
    def enlarge_rgb(self, image: npt.NDArray[np.uint8], bgr: bool = False) -> npt.NDArray[np.uint8]: ...
    @property
    def network(self) -> Literal["full", "light"]: ...
    @property
    def margin(self) -> int: ...
