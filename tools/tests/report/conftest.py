import sys
from pathlib import Path

# The builders of synthetic runs stand one folder up.
sys.path.insert(0, str(Path(__file__).parents[1]))
