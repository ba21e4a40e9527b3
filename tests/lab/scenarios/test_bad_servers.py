"""Some of the ways in which servers misbehave, told apart by name; all of them: test_bad_servers_long.py."""

import bad_servers
import pytest

SOME = bad_servers.named("Status200InHttp1", "RedirectToItself", "NulInAField", "A204WithChunks", "Http09", "FrameBodyOf204",
                         "CertificateUnknownAuthority", "Tls11Only")


@pytest.fixture(name="lab", scope="module")
def _lab(labs):
    return labs()


@pytest.fixture(name="servers", scope="module")
def _servers(lab):
    return bad_servers.start(lab)


@pytest.mark.parametrize("behaved", SOME, ids=str)
def test_it_is_judged_rightly_and_forgiven(lab, servers, behaved):
    bad_servers.check(lab, servers, behaved)
