#!/usr/bin/env python3
"""The command-line client, command by command, with what a person may get wrong.

usage: tav.py [EMULATOR ...] PROGRAM
"""
import contextlib
import os
import pathlib
import pty
import re
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = sys.argv[1:]
del sys.argv[1:]

METADATA = (bytes.fromhex("00051607 00020000") + bytes(16) + bytes.fromhex("0002") +
            bytes.fromhex("00000009 00000032 00000020") + bytes.fromhex("0000000e 00000052 00000004") +
            b"TEXTttxt" + bytes.fromhex("4000") + bytes(22) + bytes.fromhex("000001a0"))


class Client(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tavport-test-")
        self.addCleanup(folder.cleanup)
        self.top = pathlib.Path(folder.name).resolve()

    def tav(self, *words, program=tuple(PROGRAM), **options):
        return subprocess.run([*program, *map(str, words)], capture_output=True, timeout=100, errors="surrogateescape",
                              text=True, check=False, **{"cwd": self.top, **options})

    def done(self, *words, **options):
        result = self.tav(*words, **options)
        self.assertEqual((result.returncode, result.stderr), (0, ""), words)
        return result.stdout

    def refused(self, status, pattern, *words, **options):
        """Fails with one line that says why."""
        result = self.tav(*words, **options)
        self.assertEqual(result.returncode, status, f"{words}: {result.stderr}")
        self.assertRegex(result.stderr, rf"\Atav[^\n]*{pattern}[^\n]*\n\Z")

    def tree(self):
        (self.top / "tree/sub").mkdir(parents=True)
        (self.top / "tree/sub/Übung.txt").write_text("one", encoding="utf-8")
        (self.top / "tree/b").write_bytes(bytes(5000))
        (self.top / "tree/.hidden").touch()
        (self.top / "tree/link").symlink_to("nowhere")
        return self.top / "tree"

    def names(self, folder="."):
        return sorted(os.listdir(self.top / folder))

    def as_other_user(self):
        """How to run the client as somebody who owns nothing here."""
        if os.geteuid() != 0 or PROGRAM[0] != PROGRAM[-1]:
            self.skipTest("another user is needed: run as root, and not under an emulator")
        self.top.chmod(0o755)
        other = {"user": 65534, "group": 65534, "extra_groups": []}
        try:
            self.tav("--help", **other)
        except PermissionError:
            self.skipTest("the other user may not run what was built here")
        return other

    def by_shell(self, script, *words):
        """Runs a script that ends in the client's call."""
        return self.tav(*words, program=["sh", "-c", script + '; exec "$@"', "sh", *PROGRAM])


class Looking(Client):
    def test_ls_lists_a_folder_without_hidden_items(self):
        self.tree()
        lines = self.done("ls", "tree").splitlines()
        self.assertEqual([line.split()[-1] for line in lines], ["name", "b", "link", "sub"])
        self.assertRegex(lines[1], r"^ *file +[\d,]+  \d{4}-\d\d-\d\d \d\d:\d\d:\d\d  b$")

    def test_ls_shows_hidden_items_on_request(self):
        self.tree()
        self.assertIn("file, hidden", self.done("ls", "-a", "tree"))

    def test_ls_of_a_file_shows_the_file(self):
        self.tree()
        self.assertEqual(len(self.done("ls", "tree/b").splitlines()), 2)

    def test_ls_of_several_names_each(self):
        self.tree()
        self.assertIn(f"{self.top}/tree/sub:\n", self.done("ls", "tree", "tree/sub"))

    def test_names_that_are_no_text_are_shown_and_copied(self):
        name = os.fsencode(self.top) + b"/odd\xff\x1b[31m"
        with open(name, "wb") as file:
            file.write(b"content")
        self.assertIn("odd\\xff\\x1b[31m", self.done("ls"))
        self.refused(1, "its name is no text", "cat", "odd\udcff\x1b[31m")
        self.done("cp", "odd\udcff\x1b[31m", "even")
        self.assertEqual(self.done("cat", "even"), "content")

    def test_cat_prints_files_byte_by_byte(self):
        (self.top / "a").write_bytes(bytes(range(256)) * 1000)
        result = subprocess.run([*PROGRAM, "cat", "a", "a"], cwd=self.top, capture_output=True, check=True)
        self.assertEqual(result.stdout, bytes(range(256)) * 2000)

    def test_output_that_cannot_be_written_is_a_failure(self):
        (self.top / "a").write_bytes(bytes(100_000))
        with open("/dev/full", "wb") as full:
            result = subprocess.run([*PROGRAM, "cat", "a"], cwd=self.top, stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual((result.returncode, result.stderr), (1, b"tav: output: cannot be written\n"))

    def test_a_reader_that_goes_away_ends_it(self):
        (self.top / "a").write_bytes(bytes(1_000_000))
        with subprocess.Popen([*PROGRAM, "cat", "a"], cwd=self.top, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.close()
            process.wait(60)
            self.assertNotEqual(process.returncode, 0)

    def test_stat_tells_what_is_stored(self):
        path = self.tree() / "b"
        try:
            os.setxattr(path, "user.org.netatalk.Metadata", METADATA)
        except OSError as error:
            self.skipTest(f"extended attributes: {error}")
        path.chmod(0o640)
        text = self.done("stat", "tree/b")
        for line in (r"kind +file, hidden, locked", r"content +5,000 bytes, [\d,]+ on disk", r"owner, mode +\S+:\S+  rw-r-----",
                     r'type, creator  "TEXT" "ttxt"', r"Finder flags +0x4000"):
            self.assertRegex(text, line)

    def test_stat_tells_where_a_link_leads(self):
        self.tree()
        self.assertRegex(self.done("stat", "tree/link"), r"kind +link to nowhere\n")

    def test_stat_tells_of_a_link_itself(self):
        (self.top / "file").write_bytes(bytes(50_000))
        (self.top / "l").symlink_to("file")
        (self.top / "n").symlink_to("x")
        os.utime(self.top / "l", (1e9, 1e9), follow_symlinks=False)
        self.assertRegex(self.done("stat", "l"), r"content +4 bytes, 0 on disk\n(.*\n)* +changed +2001-09-09 ")
        self.assertRegex(self.done("stat", "n"), r"content +1 byte, 0 on disk\n +created +\d{4}-")
        self.assertRegex(self.done("ls", "n"), r"\n *file  +0  .* n\n\Z")

    def test_stat_reads_the_size_of_a_resource_fork(self):
        self.tree()
        (self.top / "tree/._b").write_bytes(bytes.fromhex("00051607 00020000") + bytes(16) + bytes.fromhex("0001") +
                                            bytes.fromhex("00000002 00000026 00000005") + b"forks")
        self.assertRegex(self.done("stat", "tree/b"), r"resource fork +5 bytes\n")

    def test_drives_begin_with_the_root(self):
        self.assertRegex(self.done("drives"), r"\A *type  root\n *\w+  /\n")

    def test_drives_lists_more_than_a_few(self):
        if os.geteuid() != 0:
            self.skipTest("mounting takes root")
        long = self.top / "/".join(["d" * 200] * 4)
        for number in range(120):
            (long / str(number)).mkdir(parents=True)
        if subprocess.run(["unshare", "-m", "mount", "-t", "tmpfs", "tmpfs", long / "0"], check=False).returncode != 0:
            self.skipTest("nothing can be mounted here")
        result = self.tav("drives", program=["unshare", "-m", "sh", "-c", 'for folder in "$0"/*; do mount -t tmpfs '
                                             'tmpfs "$folder" || exit; done; exec "$@"', long, *PROGRAM])
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout.count("d" * 200 + "/"), 480)

    def test_drives_that_cannot_be_listed_are_a_failure(self):
        if PROGRAM[0] != PROGRAM[-1] or re.search(rb"__(ub|a|t)san_", pathlib.Path(PROGRAM[-1]).read_bytes()):
            self.skipTest("emulators and sanitizers need the descriptors")
        result = self.by_shell("ulimit -n 4", "drives")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", "tav: drives: cannot be listed\n"))

    def test_names_with_a_colon_or_an_asterisk_are_looked_at_like_others(self):
        self.done("mkdir", "m:n", "m:n/*o", "m:n/p:")
        self.assertEqual(self.names("m:n"), ["*o", "p:"])
        for name in ("m:n/z:w", "m:n/*z", "m:n/:"):
            (self.top / name).write_bytes(bytes(5000))
            last = re.escape(name.rpartition("/")[2])
            with self.subTest(name=name):
                self.assertRegex(self.done("ls", name), rf"\A[^\n]*\n *file +[1-9][\d,]*  [-\d]+ [:\d]+  {last}\n\Z")
                text = self.done("stat", name)
                self.assertRegex(text, r"content +5,000 bytes, [1-9][\d,]* on disk\n")
                self.assertRegex(text, r"created +\d{4}-")
        self.assertEqual(len(self.done("ls", "m:n").splitlines()), 6)
        self.assertRegex(self.done("stat", "m:n/*o", "m:n"), r"(?s)(kind +folder\n.*created +\d{4}-.*){2}")
        self.refused(1, "there already", "mkdir", "m:n/p:")
        self.refused(1, "No such file", "mkdir", "gone/m:n")
        self.refused(1, "No such file", "ls", "m:n/q:")
        self.assertEqual(self.names("m:n"), ["*o", "*z", ":", "p:", "z:w"])

    def test_eval_shows_each_step(self):
        self.tree()
        text = self.done("eval", "-k", f"pref={self.top}", "-v", "what=tree", r"$pref\%what\sub\..\b")
        self.assertEqual([line.split() for line in text.splitlines()], [
            ["key", "pref", str(self.top)], ["value", "what", "tree"], ["expression", r"$pref\%what\sub\..\b"],
            ["step", "$pref", str(self.top)], ["step", r"$pref\%what", f"{self.top}/tree"],
            ["step", r"$pref\%what\sub", f"{self.top}/tree/sub"], ["step", r"$pref\%what\sub\..", f"{self.top}/tree"],
            ["path", f"{self.top}/tree/b"], ["there", "a", "file"]])

    def test_eval_refuses_a_key_that_is_not_registered(self):
        for expression in (r"$pref\x", r"$pref\x\..\y", "$pref"):
            with self.subTest(expression=expression):
                self.refused(1, r"the key \$pref is not registered; give it with -k pref=FOLDER", "eval", expression)
        self.refused(1, r'gives no path that begins with "/"', "eval", r"pref\x")

    def test_eval_takes_a_key_by_its_characters(self):
        self.assertRegex(self.done("eval", "-k", f"äö={self.top}", "$äö\\x"),
                         rf"path +{self.top}/x\n")
        self.assertIn("/x\n", self.done("eval", "-k", f"äöüß={self.top}", "$äöüß\\x"))
        self.refused(1, "the key \\$äö is not registered; give it with -k äö=FOLDER", "eval", "$äö\\x")
        self.refused(2, r"one to four characters up to U\+00FF", "eval", "-k", f"€={self.top}", "$€")

    def test_eval_says_why_there_is_no_path(self):
        (self.top / ".hidden").mkdir()
        for expression, why in ((r"plain", "begins with no key"), ("/absolute/path", "begins with no key"),
                                (r"$\x", r'has no key after "\$"'), (r"$a\x\.y\z", r'may not begin with "\.": \.y'),
                                (r"$a\x:y", 'may not have a ":": x:y'), (r"$h\x", r'a name in its path begins with "\.".*: \$h'),
                                (r"$a\%v\x", r"or the path is too long: \$a\\%v"),
                                ("$a" + r"\.." * 99, r"leads above where its path begins: ")):
            with self.subTest(expression=expression):
                result = self.tav("eval", "-k", f"a={self.top}", "-k", f"h={self.top}/.hidden", "-v", "v=x/.y", expression)
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, why)

    def test_eval_from_a_base(self):
        self.assertIn(f"{self.top}/x\n", self.done("eval", "-b", ".", r"$$here\x"))
        self.refused(1, "needs a base", "eval", r"$$here\x")


class Changing(Client):
    def test_cp_copies_a_tree_and_says_nothing(self):
        self.tree()
        self.assertEqual(self.done("cp", "tree", "copy"), "")
        subprocess.run(["diff", "-r", "--no-dereference", "tree", "copy"], cwd=self.top, check=True)

    def test_cp_into_a_folder_keeps_the_name(self):
        self.tree()
        (self.top / "into").mkdir()
        self.done("cp", "tree/b", "into")
        self.assertEqual(self.names("into"), ["b"])

    def test_cp_refuses_what_is_there_and_replaces_on_request(self):
        self.tree()
        (self.top / "copy").write_text("old", encoding="ascii")
        self.refused(1, "-f replaces it", "cp", "tree/b", "copy")
        self.assertEqual((self.top / "copy").read_text(encoding="ascii"), "old")
        self.done("cp", "-f", "tree/b", "copy")
        self.assertEqual((self.top / "copy").stat().st_size, 5000)
        self.assertEqual(self.names(), ["copy", "tree"])

    def test_cp_names_what_it_leaves_out(self):
        os.mkfifo(self.tree() / "pipe")
        self.refused(1, r"tree/pipe: left out: it is a device, pipe or socket", "cp", "tree", "copy")
        self.assertEqual(self.names("copy"), [".hidden", "b", "link", "sub"])

    def test_cp_names_folders_that_it_cannot_see_into(self):
        other = self.as_other_user()
        (self.top / "n/n1/in/closed").mkdir(parents=True)
        (self.top / "n/n1/in/closed/file").touch()
        for path in ("n", "n/n1"):
            os.chown(self.top / path, 65534, 65534)
        (self.top / "n/n1/in/closed").chmod(0)
        self.refused(1, r"n1/in/closed: left out: Permission denied", "cp", "n/n1", "n/n2", **other)
        self.assertEqual(self.names("n/n2/in"), ["closed"])
        self.refused(1, r"in/closed: Permission denied", "cp", "n/n1/in/closed", "n/n3", **other)
        self.assertEqual(self.names("n"), ["n1", "n2"])

    def test_cp_refuses_what_has_no_size_until_it_is_read(self):
        for name in ("/proc/self/status", "/sys/kernel/mm/transparent_hugepage/enabled"):
            if os.path.exists(name):
                self.refused(1, "its size is unknown until it is read", "cp", name, "copy")
        (self.top / "empty").touch()
        self.done("cp", "empty", "copy")
        self.assertEqual(self.names(), ["copy", "empty"])

    def test_cp_into_itself_is_refused(self):
        self.tree()
        self.refused(1, "lies in what is to be copied", "cp", "tree", "tree/sub")
        self.refused(1, "is the destination itself", "cp", "-f", "tree", ".")
        (self.top / "tree/sub/tree").mkdir()
        self.refused(1, "holds what is to be copied", "cp", "-f", "tree/sub/tree", ".")

    def test_cp_shows_how_far_it_is_on_a_terminal_only(self):
        with open(self.top / "large", "wb") as file:
            file.truncate(600_000_000)
        self.done("cp", "large", "quiet")
        reader, terminal = pty.openpty()
        with subprocess.Popen([*PROGRAM, "cp", "large", "shown"], cwd=self.top, stderr=terminal) as process:
            process.wait(100)
        os.close(terminal)
        said = os.read(reader, 1 << 16).decode()
        os.close(reader)
        self.assertRegex(said, r"\A\r\[\.{40}\] +0 %  0 of 600,000,000 bytes")
        self.assertTrue(said.endswith("\r\x1b[K"), said)

    def test_mv_renames_and_moves(self):
        self.tree()
        self.done("mv", "tree/b", "tree/c")
        self.done("mv", "tree/c", "tree/sub")
        self.done("mv", "tree/sub/c", "d:e")
        self.assertEqual(self.names(), ["d:e", "tree"])

    def test_mv_takes_a_new_name_where_the_old_one_is_taken(self):
        for folder in ("a", "b"):
            (self.top / folder).mkdir()
            (self.top / folder / "x").write_text(folder, encoding="ascii")
        (self.top / "a/y").touch()
        self.refused(1, "File name too long", "mv", "a/x", "b/" + "z" * 300)
        self.assertEqual((self.names("a"), self.names("b")), (["x", "y"], ["x"]))
        self.done("mv", "a/x", "b/y")
        self.assertEqual((self.names("a"), self.names("b")), (["y"], ["x", "y"]))
        self.assertEqual((self.done("cat", "b/x"), self.done("cat", "b/y")), ("b", "a"))

    def test_mv_that_fails_leaves_everything_in_its_place(self):
        other = self.as_other_user()
        for folder, owner in (("mine", 65534), ("others", 0)):
            (self.top / folder).mkdir()
            (self.top / folder / "q").touch()
            os.chown(self.top / folder, owner, owner)
        self.refused(1, r"others/r: \S+/others: Permission denied", "mv", "mine/q", "others/r", **other)
        self.refused(1, r"others/q: \S+/others: Permission denied", "mv", "others/q", "mine/r", **other)
        (self.top / "others/r").mkdir()
        self.refused(1, r"others/r/q: \S+/others/r: Permission denied", "mv", "mine/q", "others/r", **other)
        self.assertEqual((self.names("mine"), self.names("others"), self.names("others/r")), (["q"], ["q", "r"], []))

    def test_mv_replaces_nothing(self):
        self.tree()
        (self.top / "there").touch()
        self.refused(1, "there already", "mv", "tree/b", "there")
        self.refused(1, "lies in what is to be moved", "mv", "tree", "tree/sub")

    def test_rm_deletes_files_and_links_themselves(self):
        self.tree()
        self.done("rm", "tree/b", "tree/link")
        self.assertEqual(self.names("tree"), [".hidden", "sub"])

    def test_a_slash_behind_what_is_no_folder_is_refused(self):
        self.tree()
        for words in (["cp", "tree/b", "new/"], ["mv", "tree/b", "new/"], ["cp", "-f", "tree/b", "tree/.hidden/"],
                      ["mv", "tree/b/", "new"], ["cp", "tree/b/", "new"], ["rm", "tree/b/"], ["rm", "tree/link/"],
                      ["ls", "tree/b/"], ["cat", "tree/b/"], ["stat", "tree/b/"]):
            with self.subTest(words=words):
                self.refused(1, "is no folder", *words)
        self.assertEqual((self.names(), self.names("tree")), (["tree"], [".hidden", "b", "link", "sub"]))
        self.done("mkdir", "new/")
        self.done("cp", "tree/b", "new/")
        self.done("cp", "tree/sub/", "other/")
        self.done("mv", "other/", "new/moved/")
        self.assertEqual(self.names("new"), ["b", "moved"])

    def test_what_is_missing_is_not_skipped_on_the_way(self):
        self.tree()
        for name in ("gone/..", "gone/../tree", "tree/b/.."):
            with self.subTest(name=name):
                self.refused(1, "No such file|Not a directory", "ls", name)

    def test_rm_asks_for_a_word_before_it_deletes_a_folder(self):
        self.tree()
        self.refused(1, "-r deletes it", "rm", "tree")
        self.done("rm", "-r", "tree")
        self.assertEqual(self.names(), [])

    def test_rm_refuses_the_working_folder_and_those_above(self):
        here = self.top / "one/two/three"
        here.mkdir(parents=True)
        (here / "kept").touch()
        (self.top / "one/kept").touch()
        (self.top / "link").symlink_to(self.top / "one")
        for name in (".", "..", "../..", "../../.", "../three", "../three/", self.top / "one/two", "../../../link/two",
                     "../../../link/."):
            with self.subTest(name=name):
                self.refused(1, "is the working folder or above it; change to another folder first", "rm", "-r", name,
                             cwd=here)
                self.assertEqual((self.names("one"), self.names("one/two"), self.names(here)),
                                 (["kept", "two"], ["three"], ["kept"]))
        self.done("rm", "-r", "../../../link", cwd=here)  # the link itself
        (here / "other").mkdir()
        self.done("rm", "-r", "other", cwd=here)
        self.assertEqual((self.names(), self.names("one"), self.names(here)), (["one"], ["kept", "two"], ["kept"]))

    def test_cp_does_not_replace_the_working_folder_nor_those_above(self):
        here = self.top / "one/two"
        here.mkdir(parents=True)
        (self.top / "other/one").mkdir(parents=True)
        (self.top / "other/two").mkdir()
        for source, destination in (("other/two", "one"), ("other/one", ".")):
            self.refused(1, "is the working folder or above it", "cp", "-f", self.top / source, self.top / destination,
                         cwd=here)
        self.assertEqual((self.names(), self.names("one")), (["one", "other"], ["two"]))

    def test_mv_moves_a_folder_above_the_working_folder(self):
        (self.top / "one/two").mkdir(parents=True)
        self.done("mv", "..", self.top / "moved", cwd=self.top / "one/two")
        self.assertEqual((self.names(), self.names("moved")), (["moved"], ["two"]))

    def test_mkdir_makes_folders(self):
        self.done("mkdir", "one", "one/two")
        self.assertTrue((self.top / "one/two").is_dir())
        self.refused(1, "there already", "mkdir", "one")
        self.refused(1, "No such file", "mkdir", "missing/two")


class Mistakes(Client):
    def test_missing_odd_and_too_many_arguments(self):
        for words in (["cp"], ["cp", "a"], ["cp", "a", "b", "c"], ["mv", "a"], ["rm"], ["cat"], ["stat"], ["mkdir"], ["eval"],
                      ["drives", "x"], ["ls", "-z"], ["rm", "-rf", "x"], ["frob"], ["rm", ""], ["eval", "-k"],
                      ["eval", "-k", "toolong=/", "x"], ["eval", "-v", "=x", "x"], ["eval", "-v", "none", "x"]):
            with self.subTest(words=words):
                self.refused(2, "", *words)

    def test_nothing_at_all_prints_the_overview(self):
        result = self.tav()
        self.assertEqual((result.returncode, result.stdout), (2, ""))
        self.assertIn("usage: tav COMMAND", result.stderr)

    def test_help_for_all_and_for_each(self):
        overview = self.done("--help")
        commands = re.findall(r"^  (\w+) ", overview, re.MULTILINE)
        self.assertEqual(commands, ["ls", "cat", "cp", "mv", "rm", "mkdir", "stat", "drives", "eval"])
        for command in commands:
            self.assertIn(f"usage: tav {command}", self.done(command, "--help"))
            self.assertIn(f"usage: tav {command}", self.done(command, "a", "b", "c", "--help"))
        self.refused(1, "--help: No such file", "ls", "--", "--help")

    def test_what_is_missing_is_named(self):
        for words in (["ls", "gone"], ["cat", "gone"], ["cp", "gone", "x"], ["mv", "gone", "x"], ["rm", "gone"],
                      ["stat", "gone"]):
            with self.subTest(words=words):
                self.refused(1, "gone: No such file or directory", *words)

    def test_a_folder_is_no_file(self):
        self.tree()
        (self.top / "to").symlink_to("tree")
        self.refused(1, "it is a folder", "cat", "tree")
        self.refused(1, "it is a folder", "cat", "to")

    def test_neither_is_a_pipe(self):
        os.mkfifo(self.top / "pipe")
        (self.top / "to").symlink_to("pipe")
        for words in (["cp", "pipe", "copy"], ["cp", "to", "copy"], ["cat", "pipe"]):
            self.refused(1, "(pipe|to): it is a device, pipe or socket", *words)

    def test_a_name_that_is_no_text_is_said(self):
        self.tree()
        with open(os.fsencode(self.top) + b"/odd\xff", "wb"):
            pass
        self.refused(1, r"odd\\xff: its name is no text; cp copies it", "mv", "odd\udcff", "good")
        self.done("mkdir", "new\udcff")
        for words in (["mkdir", "new\udcff/x"], ["mv", "tree/b", "new\udcff"], ["cp", "tree/b", "new\udcff"]):
            self.refused(1, r"new\\xff: its name is no text", *words)
        self.assertEqual((self.names(), self.names("new\udcff")), (["new\udcff", "odd\udcff", "tree"], []))

    def test_a_path_that_is_too_long_is_said(self):
        deep = self.top
        while len(str(deep)) < 1_024:
            deep /= "d" * 200
        deep.mkdir(parents=True)
        self.tree()
        for words in (["ls", deep], ["cp", deep, "new"], ["cp", "tree/b", deep], ["mkdir", deep / "x"], ["mv", deep, "new"]):
            with self.subTest(words=words[0]):
                self.refused(1, "its path is too long, at most 1,023 units", *words)
        self.assertEqual((self.names(), os.listdir(deep)), (["d" * 200, "tree"], []))

    def test_a_limit_of_the_system_is_no_fault_of_the_name(self):
        (self.top / "large").write_bytes(bytes(2_000_000))
        result = self.by_shell("ulimit -f 2000", "cp", "large", "copy")
        self.assertRegex(result.stderr, r"\Atav: \S+/copy: its name or a limit of the system is in the way\n\Z")
        self.assertEqual((result.returncode, self.names()), (1, ["large"]))

    def test_what_may_not_be_searched_is_not_empty(self):
        other = self.as_other_user()
        self.tree()
        (self.top / "tree").chmod(0o644)
        self.refused(1, "Permission denied", "ls", "tree", **other)

    def test_the_folder_that_may_not_be_written_is_named(self):
        other = self.as_other_user()
        self.tree()
        for words in (["rm", "tree/b"], ["cp", "-f", "tree/b", "tree/sub/Übung.txt"], ["mkdir", "tree/new"]):
            with self.subTest(words=words):
                self.refused(1, r": \S*/tree(/sub)?: Permission denied", *words, **other)

    def test_what_may_not_be_read_is_said(self):
        other = self.as_other_user()
        self.tree()
        (self.top / "tree/b").chmod(0)
        (self.top / "tree/sub").chmod(0)
        self.refused(1, "Permission denied", "cat", "tree/b", **other)
        self.refused(1, "Permission denied", "ls", "tree/sub", **other)
        self.refused(1, "Permission denied", "mkdir", "new", **other)
        self.refused(1, "Permission denied", "cp", "tree/b", "/tmp/tav-copy", **other)
        self.refused(1, "cannot be deleted whole", "rm", "-r", "tree", **other)


@contextlib.contextmanager
def small_volume(test, folder, size):
    """A volume in memory, seen by this process and what it starts."""
    if os.geteuid() != 0:
        test.skipTest("mounting takes root")
    folder.mkdir()
    if subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder], check=False).returncode != 0:
        test.skipTest("nothing can be mounted here")
    try:
        yield
    finally:
        subprocess.run(["umount", "-l", folder], check=True)


class Stopped(Client):
    def test_a_full_disk_leaves_nothing_half_made(self):
        with small_volume(self, self.top / "small", "1m"):
            (self.top / "large").write_bytes(bytes(2_000_000))
            self.refused(1, "the disk is full; nothing was changed", "cp", "large", "small")
            (self.top / "many").mkdir()
            for number in range(4):
                (self.top / f"many/{number}").write_bytes(bytes(400_000))
            self.refused(1, "the disk is full; nothing was changed", "cp", "many", "small")
            self.assertEqual(self.names("small"), [])

    def test_a_disk_without_room_for_another_file_is_full(self):
        (self.top / "many").mkdir()
        for number in range(20):
            (self.top / f"many/{number}").touch()
        with small_volume(self, self.top / "small", "1m,nr_inodes=8"):
            self.refused(1, "the disk is full; nothing was changed", "cp", "many", "small")
            self.assertEqual(self.names("small"), [])
            for number in range(7):
                (self.top / f"small/{number}").touch()
            self.refused(1, "the disk is full", "mkdir", "small/folder")

    def test_rm_says_that_something_is_mounted(self):
        (self.top / "tree").mkdir()
        with small_volume(self, self.top / "tree/small", "1m"):
            self.refused(1, "deleted whole: something in it may not be deleted or is mounted", "rm", "-r", "tree")
            self.refused(1, "deleted whole: something is mounted on it", "rm", "-r", "tree/small")

    def interrupt(self, *words, when, number=signal.SIGINT):
        """Starts it, and sends the signal to the whole group as a terminal does, as soon as `when` says so, and again at
        each later time that it names."""
        with subprocess.Popen([*PROGRAM, *words], cwd=self.top, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              start_new_session=True, preexec_fn=lambda: signal.signal(number, signal.SIG_DFL)) as process:
            for moment in when if isinstance(when, tuple) else (when,):
                while process.poll() is None and not moment():
                    time.sleep(0.001)
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, number)
            output = process.communicate(timeout=100)
        return process.returncode, output[1]

    def many(self, name, count=3_000):
        folder = self.top / name
        folder.mkdir()
        for number in range(count):
            (folder / str(number)).touch()
        return folder

    def size_of(self, prefix):
        """The number of items in the folder that `cp` keeps for the while; None when there is none."""
        for name in self.names():
            if name.startswith(prefix):
                with contextlib.suppress(FileNotFoundError):
                    return len(self.names(name))
        return None

    def test_ctrl_c_in_cp_leaves_the_destination_as_it_was(self):
        with open(self.top / "large", "wb") as file:
            file.truncate(2_000_000_000)
        (self.top / "copy").write_text("old", encoding="ascii")
        status, said = self.interrupt("cp", "-f", "large", "copy", when=lambda: any(
            name.startswith(".tav-new") for name in self.names()))
        self.assertEqual((status, said), (1, f"tav: {self.top}/copy: interrupted; nothing was changed\n"))
        self.assertEqual((self.top / "copy").read_text(encoding="ascii"), "old")
        self.assertEqual(self.names(), ["copy", "large"])

    def test_ctrl_c_while_what_was_replaced_is_deleted_comes_too_late(self):
        self.many("copy")
        (self.top / "new/copy").mkdir(parents=True)
        (self.top / "new/copy/file").touch()
        deleting = lambda: self.size_of(".tav-old") is not None
        status, said = self.interrupt("cp", "-f", "new/copy", ".", when=(deleting, deleting))
        self.assertEqual((status, self.names(), self.names("copy")), (0, ["copy", "new"], ["file"]))
        if said == "":
            self.skipTest("it was deleted before Ctrl-C came")
        self.assertEqual(said, f"tav: {self.top}/copy: was replaced; the interrupt came too late\n")

    def test_ctrl_c_twice_in_cp_still_takes_the_copy_away(self):
        self.many("many")
        status, said = self.interrupt("cp", "many", "copy", when=(
            lambda: (self.size_of(".tav-new") or 0) > 1_500, lambda: (self.size_of(".tav-new") or 0) < 1_500))
        if status == 0:
            self.skipTest("it was copied before Ctrl-C came")
        self.assertEqual((status, said), (1, f"tav: {self.top}/copy: interrupted; nothing was changed\n"))
        self.assertEqual(self.names(), ["many"])

    def test_other_signals_end_cp_as_ctrl_c_does(self):
        self.many("many")
        for number in (signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number=number):
                status, said = self.interrupt("cp", "many", "copy", number=number,
                                              when=lambda: (self.size_of(".tav-new") or 0) > 10)
                if status == 0:
                    self.skipTest("it was copied before the signal came")
                self.assertEqual((status, said), (1, f"tav: {self.top}/copy: interrupted; nothing was changed\n"))
                self.assertEqual(self.names(), ["many"])

    def test_ctrl_c_in_mv_leaves_nothing_between(self):
        for folder in ("a", "b"):
            (self.top / folder).mkdir()
            (self.top / folder / "x").touch()
        status, _ = self.interrupt("mv", "a/x", "b/y", when=lambda: "x" not in self.names("a"))
        self.assertIn(status, (0, -signal.SIGINT))  # it may come when everything is done
        self.assertEqual((self.names("a"), self.names("b")), ([], ["x", "y"]))

    def test_nothing_goes_on_when_cp_is_killed(self):
        self.many("many")
        with subprocess.Popen([*PROGRAM, "cp", "many", "copy"], cwd=self.top, stdout=subprocess.PIPE) as process:
            while process.poll() is None and (self.size_of(".tav-new") or 0) < 10:
                time.sleep(0.001)
            process.kill()
            process.stdout.read()  # ends with the last process that could write
        if process.returncode == 0:
            self.skipTest("it was copied before it could be killed")
        self.assertLess(self.size_of(".tav-new"), 3_000)

    def test_ctrl_c_in_rm_says_what_is_done(self):
        folder = self.top / "many"
        folder.mkdir()
        for number in range(20_000):
            (folder / str(number)).touch()
        status, said = self.interrupt("rm", "-r", "many", when=lambda: len(os.listdir(folder)) < 19_900)
        if status == 0:
            self.skipTest("it was deleted before Ctrl-C came")
        self.assertEqual((status, said), (1, f"tav: {folder}: interrupted; a part of it may be deleted\n"))
        self.assertTrue(stat.S_ISDIR(folder.stat().st_mode))


unittest.main()
