#!/usr/bin/python3
"""A real mail server, exim, on a free port of 127.0.0.1, with a configuration and a spool of its own.

usage: mail_server.py MECHANISMS EIGHT_BIT

MECHANISMS: those of LOGIN, PLAIN, CRAM-MD5 that it offers, joined by commas; with any, it takes no mail from strangers.
The account is tim, the password "pass word". EIGHT_BIT: yes, if it offers 8BITMIME.

Prints "listening PORT"; answers each line of standard input, "next", with the next mail that it has stored, as the email
package reads it, in one line of JSON; ends with standard input.
"""

import email
import email.policy
import json
import os
import pathlib
import pwd
import shutil
import socket
import subprocess
import sys
import tempfile
import time

EXIM = "/usr/sbin/exim4"
PATIENCE = 60  # seconds

CONFIGURATION = """
primary_hostname = mail.test
spool_directory = {directory}/spool
log_file_path = {directory}/spool/%slog
pid_file_path = {directory}/spool/pid
exim_user = {user}
exim_group = {group}
keep_environment =
tls_advertise_hosts =
host_lookup =
rfc1413_hosts =
deliver_drop_privilege = true
# Clients may talk before they are greeted.
smtp_enforce_sync = false
accept_8bitmime = {eight_bit}
acl_smtp_rcpt = recipients
begin acl
recipients:
{strangers}
  deny message = no such person
       local_parts = nobody
  accept
begin routers
everybody:
  driver = accept
  transport = store
begin transports
store:
  driver = appendfile
  directory = {directory}/mail
  maildir_format
  user = {user}
  group = {group}
begin authenticators
"""
AUTHENTICATORS = {
    "LOGIN": """
login:
  driver = plaintext
  public_name = LOGIN
  server_prompts = Username:: : Password::
  server_condition = ${if and{{eq{$auth1}{tim}}{eq{$auth2}{pass word}}}}
  server_set_id = $auth1
""",
    "PLAIN": """
plain:
  driver = plaintext
  public_name = PLAIN
  server_prompts = :
  server_condition = ${if and{{eq{$auth2}{tim}}{eq{$auth3}{pass word}}}}
  server_set_id = $auth2
""",
    "CRAM-MD5": """
cram:
  driver = cram_md5
  public_name = CRAM-MD5
  server_secret = ${if eq{$auth1}{tim}{pass word}fail}
  server_set_id = $auth1
""",
}


def write_configuration(directory, mechanisms, eight_bit):
    """Under root exim delivers as the account of its package, which must be able to write there."""
    account = pwd.getpwnam("Debian-exim") if os.getuid() == 0 else pwd.getpwuid(os.getuid())
    for path in (directory, directory / "spool", directory / "mail"):
        path.mkdir(exist_ok=True)
        if os.getuid() == 0:
            os.chown(path, account.pw_uid, account.pw_gid)
    strangers = "  deny message = strangers\n       !authenticated = *" if mechanisms else ""
    text = CONFIGURATION.format(directory=directory, user=account.pw_name, group=account.pw_gid, strangers=strangers,
                                eight_bit="true" if eight_bit else "false")
    path = directory / "exim.conf"
    path.write_text(text + "".join(AUTHENTICATORS[name] for name in mechanisms), encoding="utf-8")
    if os.getuid() == 0:
        os.chown(path, 0, 0)
    path.chmod(0o644)
    return path


def start(configuration):
    # Bound here without listening, so that nobody else is given the port; exim may bind it all the same.
    reserved = socket.socket()
    reserved.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    reserved.bind(("127.0.0.1", 0))
    port = reserved.getsockname()[1]
    process = subprocess.Popen([EXIM, "-C", str(configuration), "-bdf", "-oX", f"127.0.0.1:{port}"],
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    end = time.monotonic() + PATIENCE
    while process.poll() is None and time.monotonic() < end:
        try:
            socket.create_connection(("127.0.0.1", port)).close()
            return process, port
        except ConnectionRefusedError:
            time.sleep(0.05)
    sys.exit("exim doesn't start")


def next_mail(folder, seen):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        fresh = sorted(path for path in folder.glob("new/*") if path not in seen)
        if fresh:
            seen.add(fresh[0])
            return email.message_from_bytes(fresh[0].read_bytes(), policy=email.policy.default)
        time.sleep(0.05)
    return None


def main():
    mechanisms = [name for name in sys.argv[1].split(",") if name]
    directory = pathlib.Path(tempfile.mkdtemp(prefix="corvane-mail-"))
    process = None
    try:
        process, port = start(write_configuration(directory, mechanisms, sys.argv[2] == "yes"))
        print("listening", port, flush=True)
        seen = set()
        for _ in sys.stdin:
            mail = next_mail(directory / "mail", seen)
            reply = {} if mail is None else {
                "from": str(mail["from"]), "to": str(mail["to"]), "subject": str(mail["subject"]),
                "text": mail.get_content(), "type": str(mail["content-type"]),
                "encoding": str(mail["content-transfer-encoding"]), "received": str(mail["received"]),
            }
            print(json.dumps(reply), flush=True)
    finally:
        if process is not None:
            process.terminate()
            process.wait()
        shutil.rmtree(directory, ignore_errors=True)


if __name__ == "__main__":
    main()
