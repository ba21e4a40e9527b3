"""Endpoints that flood, stall and drip: the program goes on answering its user, spends little on them, and is well again as
soon as they are. Further kinds: test_hostile_endpoints_long.py."""

import pytest
from hostility import Hostile, check_both_hostile, check_one_hostile_endpoint


def flood(stage, name, answers=False):
    return Hostile({"stage": stage, "flood": name}, answers)


@pytest.mark.alone
@pytest.mark.parametrize("hostile", [flood("answer", "ping")], ids=str)
def test_one_hostile_endpoint_is_not_noticed_beside_a_good_one(lab, hostile):
    check_one_hostile_endpoint(lab, hostile)


@pytest.mark.parametrize("hostile", [
    pytest.param(flood("answer", "ticket", answers=True), marks=pytest.mark.alone), Hostile({"stage": "open", "deed": "drip"})], ids=str)
def test_hostility_of_both_endpoints_is_no_connection_and_no_burden(lab, hostile):
    check_both_hostile(lab, hostile)
