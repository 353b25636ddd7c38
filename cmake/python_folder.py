"""Prints where the interpreter looks for packages below a prefix, relative to it.

python_folder.py <prefix>
"""

import sys
import sysconfig
from pathlib import PurePosixPath

prefix = sys.argv[1].rstrip("/") or "/"
schemes = sysconfig.get_scheme_names()
if "deb_system" in schemes and prefix == "/usr":
    folder = sysconfig.get_path("purelib", "deb_system", {"base": prefix})
elif "posix_local" in schemes and prefix == "/usr/local":
    folder = sysconfig.get_path("purelib", "posix_local", {"base": "/usr"})
else:
    folder = sysconfig.get_path("purelib", "posix_prefix", {"base": prefix})
print(PurePosixPath(folder).relative_to(prefix))
