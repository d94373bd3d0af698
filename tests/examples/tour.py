"""Runs the tour as ./demo does and checks what it prints, what it leaves and how it refuses bad folders.

usage: tour.py [EMULATOR ...] PROGRAM
"""
import os
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv[1:]
del sys.argv[1:]


class Tour(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.temporary = os.path.join(self.folder.name, "temporary")
        os.mkdir(self.temporary)

    def run_tour(self, *arguments, program=tuple(PROGRAM), **options):
        return subprocess.run([*program, *arguments], capture_output=True, text=True, timeout=100,
                              env={**os.environ, "TMPDIR": self.temporary}, **options)

    def assert_refused(self, result, reason):
        self.assertEqual(result.returncode, 2, result.stdout + result.stderr)
        self.assertEqual(result.stdout, "")
        self.assertRegex(result.stderr, r"\A[^\n]*%s[^\n]*\n\Z" % reason)

    def snapshot(self, folder):
        seen = {}
        for path, folders, files in os.walk(folder):
            for name in folders + files:
                full = os.path.join(path, name)
                facts = os.lstat(full)
                seen[full] = (facts.st_ino, facts.st_mode, facts.st_mtime_ns, facts.st_ctime_ns, facts.st_size)
        return seen

    def test_shows_its_sample_and_cleans_up(self):
        result = self.run_tour()
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(result.stderr, "")
        self.assertRegex(result.stdout.splitlines()[-1], r"^All \d\d steps went as they should\.$")
        for heading in ("A tree copied, compared, deleted", "A module of the tour's own bundle", "Workers"):
            self.assertIn("\n%s\n%s\n" % (heading, "-" * len(heading)), result.stdout)
        self.assertRegex(result.stdout, r"(?m)^  compared +\d+ files in \d+ folders are the same$")
        self.assertRegex(result.stdout, r"(?m)^  called for nine o'clock +Good morning!$")
        for part in ("$tour\\%lang\\Letters\\summer.txt", "$$tour\\contract.txt", "M\\", "Signed and sealed."):
            self.assertIn(part, result.stdout)
        self.assertEqual(os.listdir(self.temporary), [])

    def test_only_reads_the_folder_that_it_is_given(self):
        folder = os.path.join(self.folder.name, "mine \u00e9")
        os.mkdir(folder)
        with open(os.path.join(folder, "letter.txt"), "w") as file:
            file.write("hello\nthere\n")
        os.mkdir(os.path.join(folder, "en"))
        before = self.snapshot(folder)
        for argument, options in ((folder, {}), (".", {"cwd": folder})):
            result = self.run_tour(argument, **options)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            self.assertRegex(result.stdout, r'letter\.txt +"hello"\n')
        self.assertEqual(self.snapshot(folder), before)
        self.assertEqual(os.listdir(self.temporary), [])

    def test_shows_a_few_of_many_drives(self):
        if os.geteuid() != 0:
            self.skipTest("mounting takes root")
        long = os.path.join(self.folder.name, *["d" * 200] * 4)
        for number in range(120):
            os.makedirs(os.path.join(long, str(number)))
        probe = ["unshare", "-m", "mount", "-t", "tmpfs", "tmpfs", long]
        if subprocess.run(probe, check=False, capture_output=True).returncode != 0:
            self.skipTest("nothing can be mounted here")
        script = 'for folder in "$0"/*; do mount -t tmpfs tmpfs "$folder" || exit; done; exec "$@"'
        result = self.run_tour(program=["unshare", "-m", "sh", "-c", script, long, *PROGRAM])
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        drives = int(re.search(r"(?m)^  and (\d+) more\n  the first drive", result.stdout)[1])
        self.assertGreaterEqual(drives, 100)

    def test_refuses_what_is_not_there(self):
        self.assert_refused(self.run_tour(os.path.join(self.folder.name, "none")), "No such file or directory")

    def test_refuses_a_file(self):
        self.assert_refused(self.run_tour(__file__), "Not a directory")

    def test_refuses_a_folder_that_virtual_paths_cannot_name(self):
        hidden = os.path.join(self.folder.name, ".hidden")
        os.mkdir(hidden)
        self.assert_refused(self.run_tour(hidden), "names that begin with")

    def test_refuses_two_folders(self):
        self.assert_refused(self.run_tour("a", "b"), "usage")

    @unittest.skipIf(os.geteuid() == 0, "the superuser can read every folder")
    def test_refuses_a_folder_that_cannot_be_read(self):
        closed = os.path.join(self.folder.name, "closed")
        os.mkdir(closed, 0o000)
        self.assert_refused(self.run_tour(closed), "Permission denied")


if __name__ == "__main__":
    unittest.main()
