import pytest
from toy import LIMIT, clamped, endless, refuse


@pytest.mark.parametrize(("value", "expected"), [(2, 2), (3, 3), (4, 3)])
def test_a_value_is_clamped(value, expected):
    assert clamped(value) == expected == min(value, LIMIT)


def test_no_name_is_refused():
    refuse("a")
    with pytest.raises(ValueError, match="name expected"):
        refuse("")


def test_a_count_ends():
    assert endless(2) == 0
