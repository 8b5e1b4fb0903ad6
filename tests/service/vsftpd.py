"""vsftpd on free loopback ports."""

import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import threading

from mapserver.lighttpd import make_certificates

# Ends a server together with the process that started it.
LEASH = ["setpriv", "--pdeathsig", "KILL"]
PATH = os.environ["PATH"] + ":/usr/sbin"

CONFIG = """
listen=NO run_as_launching_user=YES seccomp_sandbox=NO connect_from_port_20=NO delay_failed_login=0
anonymous_enable=YES local_enable=NO anon_root={root} anon_umask=022 anon_world_readable_only=NO
write_enable=YES anon_upload_enable=YES anon_mkdir_write_enable=YES anon_other_write_enable=YES
ascii_download_enable=YES ascii_upload_enable=YES secure_email_list_enable=YES email_password_file={directory}/passwords
xferlog_enable=YES vsftpd_log_file={directory}/log log_ftp_protocol=YES
"""
CONFIG_TLS = """
ssl_enable=YES allow_anon_ssl=YES force_anon_logins_ssl=YES force_anon_data_ssl=YES require_ssl_reuse=NO ssl_ciphers=HIGH
rsa_cert_file={directory}/server.pem rsa_private_key_file={directory}/server.pem implicit_ssl={implicit}
"""
# The session tickets of TLS 1.3, which nobody reads on a data connection, turn the end of an upload into a reset.
OPENSSL = """
openssl_conf = all
[all]
ssl_conf = ssl
[ssl]
system_default = limits
[limits]
MaxProtocol = TLSv1.2
"""

FTP_USER = "anonymous"
FTP_PASSWORD = "open&sesame"


class Vsftpd:
    """Serves `root` to FTP_USER with FTP_PASSWORD. `tls`: "" none, "explicit" or "implicit".

    The listening socket is ours: each connection gets a server of its own, as from an Internet superserver.
    """

    def __init__(self, directory, tls=""):
        self.directory = pathlib.Path(directory)
        self.root = self.directory / "root"
        self.root.mkdir(parents=True)
        self.ca = self.directory / "ca.pem"
        if tls:
            make_certificates(self.directory)
        config = (CONFIG + CONFIG_TLS * bool(tls)).format(directory=self.directory, root=self.root,
                                                          implicit="YES" if tls == "implicit" else "NO")
        for name, text in (("vsftpd.conf", "\n".join(config.split())), ("openssl.cnf", OPENSSL),
                           ("passwords", FTP_PASSWORD + "\n")):
            (self.directory / name).write_text(text)
        (self.directory / "vsftpd.conf").chmod(0o600)
        self._servers = []
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self.url = f"{'ftps' if tls == 'implicit' else 'ftp'}://localhost:{self.port}/"
        self._thread = threading.Thread(target=self._accept, daemon=True)
        self._thread.start()

    def _accept(self):
        environment = os.environ | {"PATH": PATH, "OPENSSL_CONF": str(self.directory / "openssl.cnf")}
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with connection:
                self._servers.append(subprocess.Popen([*LEASH, "vsftpd", self.directory / "vsftpd.conf"], stdin=connection,
                                                      stdout=connection, stderr=subprocess.DEVNULL,
                                                      start_new_session=True, env=environment))

    def log(self):
        log = self.directory / "log"
        return log.read_text(errors="replace") if log.exists() else ""

    def commands(self):
        """What clients sent, first words only."""
        return re.findall(r'FTP command: Client "[^"]*", "(\w+)', self.log())

    def forget_log(self):
        (self.directory / "log").write_text("")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self._thread.join(10)
        for server in self._servers:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(server.pid, signal.SIGKILL)
            server.wait()
