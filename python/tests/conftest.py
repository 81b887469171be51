import sys
from pathlib import Path

# The package from this source tree, whichever folder pytest starts in.
sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
