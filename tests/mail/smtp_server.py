#!/usr/bin/python3
"""A real SMTP server on loopback for the mailer's tests.

Prints "READY <port>" on standard output once it listens. Each message received is kept in
--spool as N.eml (the data exactly as received, after the server undid dot-stuffing) and N.env
(lines "from <sender>", "to <recipient>" per recipient, "tls yes|no"); N.env is renamed into place
last, so a test that sees it sees both.

--refuse ADDRESS (repeatable) answers RCPT TO for that address with 550; --refuse-data answers every
message's data with 554; --silent accepts
connections and never says a word; --cert/--key offer STARTTLS and require it.
"""
import argparse
import asyncio
import os
import ssl
import sys

from aiosmtpd.smtp import SMTP


class Spool:
    def __init__(self, directory, refused, refuse_data):
        self.directory = directory
        self.refused = set(refused)
        self.refuse_data = refuse_data
        self.count = 0

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if address in self.refused:
            return "550 5.1.1 no such user here"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if self.refuse_data:
            return "554 5.7.1 message refused"
        self.count += 1
        base = os.path.join(self.directory, str(self.count))
        with open(base + ".eml", "wb") as out:
            out.write(envelope.original_content)
        lines = ["from " + envelope.mail_from]
        lines += ["to " + rcpt for rcpt in envelope.rcpt_tos]
        lines.append("tls " + ("yes" if session.ssl is not None else "no"))
        with open(base + ".tmp", "w") as out:
            out.write("\n".join(lines) + "\n")
        os.rename(base + ".tmp", base + ".env")
        return "250 2.0.0 queued as test-" + str(self.count)


async def silent(reader, writer):
    await asyncio.sleep(3600)


async def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--spool", required=True)
    parser.add_argument("--refuse", action="append", default=[])
    parser.add_argument("--refuse-data", action="store_true")
    parser.add_argument("--silent", action="store_true")
    parser.add_argument("--cert")
    parser.add_argument("--key")
    options = parser.parse_args()

    loop = asyncio.get_running_loop()
    if options.silent:
        server = await asyncio.start_server(silent, "127.0.0.1", options.port)
    else:
        handler = Spool(options.spool, options.refuse, options.refuse_data)
        tls = None
        if options.cert:
            tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
            tls.load_cert_chain(options.cert, options.key)
        server = await loop.create_server(
            lambda: SMTP(handler, hostname="test.invalid", tls_context=tls,
                         require_starttls=tls is not None, loop=loop),
            "127.0.0.1", options.port)
    port = server.sockets[0].getsockname()[1]
    print("READY", port, flush=True)
    # The test ends us by closing our standard input (or by a signal).
    await loop.run_in_executor(None, sys.stdin.read)
    server.close()


if __name__ == "__main__":
    asyncio.run(main())
