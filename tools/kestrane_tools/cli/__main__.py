"""`python3 -m kestrane_tools.cli`."""

import sys

from kestrane_tools.cli.app import main

sys.exit(main())
