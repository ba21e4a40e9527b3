"""The endpoints, by a server whose own time does not blur the figures."""

import subprocess

import network
from support.processes import wait_until

CONFIGURATION = """
daemon off; master_process off; pid {folder}/nginx.pid; error_log {folder}/nginx-error.log;
events {{}}
http {{
  access_log {folder}/nginx-access.log; client_body_temp_path {folder}; proxy_temp_path {folder};
  fastcgi_temp_path {folder}; uwsgi_temp_path {folder}; scgi_temp_path {folder};
  {servers}
}}
"""
SERVER = """
server {{
  listen {address}:443 ssl http2; server_name {name};
  ssl_certificate {pem}; ssl_certificate_key {pem}; ssl_protocols TLSv1.3;
  location / {{ return 204; }}
}}
"""


class Nginx:
    def __init__(self, lab_network, authority, stack):
        log = lab_network.folder / "nginx-access.log"
        servers = "".join(SERVER.format(address=address, name=name, pem=authority.folder / f"{name}.good.pem")
                          for name, address in zip(network.ENDPOINT_NAMES, network.ENDPOINT_ADDRESSES))
        configuration = lab_network.folder / "nginx.conf"
        configuration.write_text(CONFIGURATION.format(folder=lab_network.folder, servers=servers))
        stack.enter_context(lab_network.server.popen(["nginx", "-c", configuration], stderr=subprocess.DEVNULL))
        wait_until(log.exists, 5, "nginx is there")
