"""Without the module no test is found."""

import toy  # noqa: F401
