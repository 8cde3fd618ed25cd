"""The package is built once and tried in private machines, like the program itself."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "end_to_end"))
