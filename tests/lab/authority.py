"""The lab's own certificate authority, made anew for each run."""

import shutil
import subprocess
from pathlib import Path

from support.processes import BARE_ENVIRONMENT

SYSTEM_SSL = Path("/etc/ssl")


class Authority:
    """Makes NAME.KIND.pem (certificate and key) for each name, a good one and bad ones, and an /etc/ssl that trusts this
    authority beside all that the system trusts."""

    def __init__(self, folder, names):
        self.folder = Path(folder)
        self.etc_ssl = self.folder / "etc-ssl"
        self._certificate = self._self_signed("authority", "Skylet lab authority", "basicConstraints=critical,CA:TRUE")
        self._write_pem("authority", self._certificate)
        for name in names:
            self._leaf(name, "good", f"DNS:{name}", days=2)
            self._leaf(name, "other-name", "DNS:other.example", days=2)
            self._leaf(name, "expired", f"DNS:{name}", days=0)  # OpenSSL 3.5 makes none that ends before it begins
            self_signed = self._self_signed(f"{name}.self-signed", name, f"subjectAltName=DNS:{name}")
            self._write_pem(f"{name}.self-signed", self_signed)
        self._make_etc_ssl()

    def _make_etc_ssl(self):
        certs = self.etc_ssl / "certs"
        shutil.copytree(SYSTEM_SSL / "certs", certs, symlinks=True)
        shutil.copy(SYSTEM_SSL / "openssl.cnf", self.etc_ssl)
        own = certs / "skylet-lab.pem"
        own.write_text(self._certificate)
        digest = self._openssl("x509", "-in", own, "-noout", "-subject_hash").strip()
        (certs / f"{digest}.0").symlink_to(own.name)
        with (certs / "ca-certificates.crt").open("a") as bundle:
            bundle.write(self._certificate)

    def _self_signed(self, key, subject, extension):
        return self._openssl("req", "-x509", *self._new_key(key), "-subj", f"/CN={subject}", "-days", 2,
                             "-addext", extension)

    def _leaf(self, name, kind, alternative_name, days):
        base = f"{name}.{kind}"
        request, extensions, issuer = (self.folder / file for file in (f"{base}.csr", f"{base}.ext", "authority.crt"))
        issuer.write_text(self._certificate)
        extensions.write_text(f"subjectAltName={alternative_name}\n")
        self._openssl("req", *self._new_key(base), "-subj", f"/CN={name}", "-out", request)
        self._write_pem(base, self._openssl("x509", "-req", "-in", request, "-CA", issuer, "-CAkey", self._key("authority"),
                                            "-days", days, "-extfile", extensions))

    def _write_pem(self, base, certificate):
        (self.folder / f"{base}.pem").write_text(certificate + self._key(base).read_text())

    def _key(self, base):
        return self.folder / f"{base}.key"

    def _new_key(self, base):
        return ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", self._key(base)]

    def _openssl(self, *arguments):
        return subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True, text=True,
                              env=BARE_ENVIRONMENT).stdout
