"""Endpoints that are hostile in every way and at every stage: a quarter of a minute each."""

import pytest
from hostility import DRIPS, EARLY, ENDS, HTTP1, IDLE, INSTEAD, ONCE, STALLS, check_both_hostile, check_one_hostile_endpoint, floods

FLOODS = [*IDLE, *INSTEAD, *floods("request", "closedHeaders"), *EARLY, *ONCE, *HTTP1]


@pytest.mark.parametrize("hostile", [*FLOODS, *STALLS, *DRIPS], ids=str)
def test_one_hostile_endpoint_is_not_noticed_beside_a_good_one(lab, hostile):
    check_one_hostile_endpoint(lab, hostile)


@pytest.mark.parametrize("hostile", [*FLOODS, *STALLS, *DRIPS, *ENDS], ids=str)
def test_hostility_of_both_endpoints_is_no_connection_and_no_burden(lab, hostile):
    check_both_hostile(lab, hostile)
