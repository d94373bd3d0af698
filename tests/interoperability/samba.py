#!/usr/bin/env python3
"""The same files and folders through this library and through Samba's modules for Macs: what either writes, the other
reads. Exits with 77 and the reason where there can be no server.

usage: samba.py STORED_FACTS TAV
"""
import os
import pathlib
import random
import select
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

import file_server

STORED_FACTS, TAV = sys.argv[1:3]
del sys.argv[1:3]

ATTRIBUTE = "user.org.netatalk.Metadata"
FINDER = b"TEXTttxt" + bytes.fromhex("0400") + bytes(range(0x10, 0x26))
OTHER_FINDER = b"APPLtavp" + bytes.fromhex("2000") + bytes(range(0x30, 0x46))
NO_DATE = -2082844800  # what the platform says for "never", counted from 1970
CREATED = 1_296_705_906  # 2011-02-03 04:05:06
LOCKED = 0x01a0  # may not be written, renamed or deleted

STARTER = """
import sys, file_server
server = file_server.FileServer(sys.argv[1])
server.start()
print(server.process.pid, server.port, flush=True)
sys.stdin.read()
"""

server = None


def setUpModule():
    global server
    folder = tempfile.TemporaryDirectory(prefix="tavport-test-")
    unittest.addModuleCleanup(folder.cleanup)
    # A server that runs as a plain user refuses its client library folders that others may not read.
    os.chmod(folder.name, 0o755)
    server = file_server.FileServer(pathlib.Path(folder.name).resolve())
    unittest.addModuleCleanup(server.remove)
    server.start()


def run(*command, **options):
    result = subprocess.run([str(word) for word in command], capture_output=True, timeout=60, check=False, **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.returncode}, {result.stderr.decode(errors='replace')}")
    return result.stdout


def store(path, **facts):
    words = {key: value.hex() if isinstance(value, bytes) else value for key, value in facts.items()}
    run(STORED_FACTS, "set", path, *(f"{key}={value}" for key, value in words.items()))


def stored(path):
    facts = dict(line.split() for line in run(STORED_FACTS, "show", path).decode().splitlines())
    return {key: bytes.fromhex(value) if key == "finder" else int(value) for key, value in facts.items()}


def write_resource(path, content):
    run(STORED_FACTS, "write-resource", path, input=content)


def read_resource(path):
    return run(STORED_FACTS, "read-resource", path)


def info_stream(finder):
    """What servers for Macs call AFP_AfpInfo: version 1, no backup date."""
    return b"AFP\0" + struct.pack(">IIi", 0x00000100, 0, -2**31) + finder + bytes(12)


def lock_at(record):
    """Where the bits of the lock are: the second half of entry 14 of an AppleDouble record."""
    count, = struct.unpack_from(">H", record, 24)
    return 2 + next(offset for number, offset, _ in struct.iter_unpack(">III", record[26:26 + 12 * count]) if number == 14)


def lock_bits(path):
    record = os.getxattr(path, ATTRIBUTE)
    return struct.unpack_from(">H", record, lock_at(record))[0]


class Shared(unittest.TestCase):
    def setUp(self):
        # Names are the tests' own, as the server goes on from one to the next.
        self.name = self.id().rsplit(".", 1)[-1]
        self.path = server.share / self.name

    def file(self):
        self.path.write_bytes(b"content")
        return self.path

    def served_file(self):
        """Made through the server, which then is the one that lays its record out."""
        server.write(self.name, b"content")
        server.write(f"{self.name}:AFP_AfpInfo", info_stream(FINDER))
        return self.path


class WrittenHere(Shared):
    def test_finder_information_of_a_file_is_in_the_stream(self):
        store(self.file(), finder=FINDER)
        self.assertEqual(server.read(f"{self.name}:AFP_AfpInfo"), info_stream(FINDER))

    def test_finder_information_of_a_folder_is_in_the_stream(self):
        self.path.mkdir()
        store(self.path, finder=FINDER)
        self.assertEqual(server.read(f"{self.name}:AFP_AfpInfo"), info_stream(FINDER))

    def test_resource_fork_is_in_the_stream(self):
        content = random.Random(1).randbytes(100_000)
        write_resource(self.file(), content)
        self.assertEqual(server.read(f"{self.name}:AFP_Resource"), content)

    def test_shortened_resource_fork_is_short_in_the_stream(self):
        write_resource(self.file(), b"longer")
        write_resource(self.path, b"sho")
        self.assertEqual(server.read(f"{self.name}:AFP_Resource"), b"sho")

    def test_plain_file_shows_no_streams(self):
        self.file()
        self.assertEqual(server.streams(self.name), {"": 7})

    def test_file_with_both_shows_both_streams(self):
        store(self.file(), finder=FINDER)
        write_resource(self.path, b"resource")
        self.assertEqual(server.streams(self.name), {"": 7, "AFP_AfpInfo": 60, "AFP_Resource": 8})

    def test_finder_information_that_is_taken_away_is_no_stream(self):
        store(self.file(), finder=FINDER)
        store(self.path, finder=bytes(32))
        self.assertEqual(server.streams(self.name), {"": 7})

    def test_sidecar_is_not_listed(self):
        write_resource(self.file(), b"resource")
        self.assertTrue((server.share / f"._{self.name}").exists())
        names = server.names()
        self.assertIn(self.name, names)
        self.assertNotIn(f"._{self.name}", names)

    def test_creation_date_is_the_create_time(self):
        # Listings ask for what a link leads to by its name, and then this version of the server takes the date from
        # the attribute. For the file itself it asks through its descriptor and tells the file system's date.
        store(self.file(), created=CREATED)
        (server.share / f"{self.name}_link").symlink_to(self.name)
        self.assertEqual(server.create_times()[f"{self.name}_link"], CREATED)

    def test_lock_is_in_the_attribute(self):
        store(self.file(), locked=1)
        self.assertEqual(lock_bits(self.path), LOCKED)
        store(self.path, locked=0, finder=FINDER)
        self.assertEqual(lock_bits(self.path), 0)

    def test_copy_shows_the_streams_of_its_source(self):
        store(self.file(), finder=FINDER)
        write_resource(self.path, b"resource")
        run(TAV, "cp", self.path, server.share / f"{self.name}_copy")
        self.assertEqual(server.read(f"{self.name}_copy:AFP_AfpInfo"), info_stream(FINDER))
        self.assertEqual(server.read(f"{self.name}_copy:AFP_Resource"), b"resource")

    def test_moved_file_shows_its_streams_under_the_new_name(self):
        store(self.file(), finder=FINDER)
        write_resource(self.path, b"resource")
        run(TAV, "mv", self.path, server.share / f"{self.name}_moved")
        self.assertEqual(server.streams(f"{self.name}_moved"), {"": 7, "AFP_AfpInfo": 60, "AFP_Resource": 8})


class WrittenByTheServer(Shared):
    def test_finder_information_of_a_file_is_read(self):
        self.assertEqual(stored(self.served_file())["finder"], FINDER)

    def test_finder_information_of_a_folder_is_read(self):
        server.command(f'mkdir "{self.name}"')
        server.write(f"{self.name}:AFP_AfpInfo", info_stream(FINDER))
        self.assertEqual(stored(self.path)["finder"], FINDER)

    def test_resource_fork_is_read(self):
        content = random.Random(2).randbytes(100_000)
        server.write(self.name, b"content")
        server.write(f"{self.name}:AFP_Resource", content)
        self.assertEqual(read_resource(self.path), content)

    def test_empty_resource_fork_is_read(self):
        write_resource(self.file(), b"resource")
        server.write(f"{self.name}:AFP_Resource", b"")
        self.assertEqual(read_resource(self.path), b"")

    def test_create_time_is_the_creation_date(self):
        self.served_file()
        server.command(f'utimes "{self.name}" 11:02:03-04:05:06 -1 -1 -1')
        self.assertEqual(stored(self.path)["created"], CREATED)

    def test_file_has_no_backup_date_and_no_lock(self):
        facts = stored(self.served_file())
        self.assertEqual((facts["backup"], facts["locked"]), (NO_DATE, 0))

    def test_renamed_file_keeps_its_resource_fork(self):
        write_resource(self.file(), b"resource")
        server.command(f'rename "{self.name}" "{self.name}_moved"')
        self.assertEqual(read_resource(server.share / f"{self.name}_moved"), b"resource")

    def test_deleted_file_leaves_no_sidecar(self):
        write_resource(self.file(), b"resource")
        server.command(f'rm "{self.name}"')
        self.assertEqual([name for name in os.listdir(server.share) if name.endswith(self.name)], [])

    def test_copy_has_what_the_server_wrote(self):
        self.served_file()
        server.write(f"{self.name}:AFP_Resource", b"resource")
        run(TAV, "cp", self.path, server.share / f"{self.name}_copy")
        self.assertEqual(stored(server.share / f"{self.name}_copy")["finder"], FINDER)
        self.assertEqual(read_resource(server.share / f"{self.name}_copy"), b"resource")


class WrittenByBoth(Shared):
    def test_finder_information_changed_here_is_in_the_server_s_stream(self):
        store(self.served_file(), finder=OTHER_FINDER)
        self.assertEqual(server.read(f"{self.name}:AFP_AfpInfo"), info_stream(OTHER_FINDER))

    def test_finder_information_changed_by_the_server_is_read(self):
        store(self.file(), finder=FINDER)
        server.write(f"{self.name}:AFP_AfpInfo", info_stream(OTHER_FINDER))
        self.assertEqual(stored(self.path)["finder"], OTHER_FINDER)

    def test_server_s_change_leaves_lock_and_dates(self):
        store(self.file(), finder=FINDER, created=CREATED, backup=CREATED + 1, locked=1)
        server.write(f"{self.name}:AFP_AfpInfo", info_stream(OTHER_FINDER))
        self.assertEqual(stored(self.path), {"finder": OTHER_FINDER, "created": CREATED, "backup": CREATED + 1, "locked": 1})
        self.assertEqual(lock_bits(self.path), LOCKED)

    def test_lock_in_the_server_s_attribute_is_read_and_taken_away(self):
        record = bytearray(os.getxattr(self.served_file(), ATTRIBUTE))
        struct.pack_into(">H", record, lock_at(record), LOCKED | 0x0001)
        os.setxattr(self.path, ATTRIBUTE, record)
        self.assertEqual(lock_bits(self.path), LOCKED | 0x0001)
        self.assertEqual(stored(self.path)["locked"], 1)
        store(self.path, locked=0)
        self.assertEqual(lock_bits(self.path), 0x0001)

    def test_resource_fork_changed_here_is_in_the_server_s_stream(self):
        server.write(self.name, b"content")
        server.write(f"{self.name}:AFP_Resource", b"short")
        content = random.Random(3).randbytes(70_000)
        write_resource(self.path, content)
        self.assertEqual(server.read(f"{self.name}:AFP_Resource"), content)

    def test_resource_fork_changed_by_the_server_is_read(self):
        content = random.Random(4).randbytes(70_000)
        write_resource(self.file(), b"short")
        server.write(f"{self.name}:AFP_Resource", content)
        self.assertEqual(read_resource(self.path), content)

    def test_resource_fork_beside_finder_information_that_an_archive_brought_is_in_the_stream(self):
        (server.share / f"._{self.name}").write_bytes(
            struct.pack(">II16xHIII", 0x00051607, 0x00020000, 1, 9, 38, 32) + FINDER)
        write_resource(self.file(), b"resource")
        self.assertEqual(server.read(f"{self.name}:AFP_Resource"), b"resource")
        self.assertEqual(stored(self.path)["finder"], FINDER)


class Server(unittest.TestCase):
    def test_server_ends_when_its_starter_is_killed(self):
        with tempfile.TemporaryDirectory(prefix="tavport-test-") as folder:
            # The folder is the one for temporary files too: nobody else removes what the killed process leaves.
            with subprocess.Popen([sys.executable, "-B", "-c", STARTER, folder], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, cwd=pathlib.Path(__file__).parent,
                                  env={**os.environ, "TMPDIR": folder}) as starter:
                process, port = map(int, starter.stdout.readline().split())
                ended = os.pidfd_open(process)
                self.addCleanup(os.close, ended)
                with socket.create_connection(("127.0.0.1", port)):
                    starter.kill()
                    readable, _, _ = select.select([ended], [], [], 60)
                file_server.await_session(process)
            self.assertEqual(readable, [ended])
            self.assertRaises(ConnectionRefusedError, socket.create_connection, ("127.0.0.1", port))


if reason := file_server.missing():
    print(reason)
    sys.exit(77)
unittest.main()
