import sys
from pathlib import Path

# The independent writers of cloud files stand beside the tests.
sys.path.insert(0, str(Path(__file__).parent))
