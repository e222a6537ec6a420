import subprocess

import pytest

from serving import Server


@pytest.fixture
def serve():
    servers = []

    def start(*options):
        servers.append(Server(*options))
        return servers[-1]

    yield start
    for server in servers:
        code = server.end()
        print(server.log)
        assert code == 0


@pytest.fixture
def files(tmp_path):
    """Users, and a certificate with its key."""
    users = tmp_path / "users"
    users.write_text("anna:right\n")
    users.chmod(0o600)
    pem = tmp_path / "server.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                    "/CN=localhost", "-keyout", tmp_path / "key", "-out", tmp_path / "certificate"],
                   check=True, capture_output=True)
    pem.write_text((tmp_path / "certificate").read_text() + (tmp_path / "key").read_text())
    pem.chmod(0o600)
    return users, pem
