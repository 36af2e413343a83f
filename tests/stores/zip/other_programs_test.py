"""Archives of the zip store as other programs list, unpack and make them, and hostile archives.

SAVE_STATES names the program that saves and describes documents. The archives are read and made by
Python's zipfile, which shares no code with the library under the store.
"""

import hashlib
import io
import os
import re
import shutil
import struct
import subprocess
import tempfile
import unittest
import zipfile

from tracing import can_trace

PROGRAM = os.environ["SAVE_STATES"]
TEXTS = [b"of the old state", b"shared by both states"]
OLD_ID, SHARED_ID = (hashlib.sha256(text).hexdigest() for text in TEXTS)
OLD_STATE = "master: of the old state\ntopic: shared by both states\n"
NEW_STATE = "large: 20000 bytes\nmaster: of the new state\n"


def name_of(identifier):
    return f"objects/{identifier[:2]}/{identifier[2:]}.object"


def state_digest(heads):
    text = "".join(f"branch {len(name)} {name} {head}\n" for name, head in sorted(heads.items()))
    return hashlib.sha256(text.encode()).hexdigest()


class OtherPrograms(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="talvcs-zip-")
        self.addCleanup(holder.cleanup)
        self.folder = holder.name
        self.file = os.path.join(holder.name, "document.zip")

    def run_program(self, action):
        return subprocess.run([PROGRAM, self.file, action], capture_output=True, text=True,
                              check=False, timeout=60)

    def save(self, *states):
        for state in states:
            self.assertEqual(self.run_program(state).returncode, 0)

    def describe(self):
        result = self.run_program("describe")
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def entries(self):
        """The entries of the old state, made here."""
        return {
            "README.txt": "TalVcs document, format 1\nstate "
                          + state_digest({"master": OLD_ID, "topic": SHARED_ID}) + "\n",
            "branches/master.txt": OLD_ID + "\n",
            "branches/topic.txt": SHARED_ID + "\n",
            name_of(OLD_ID): TEXTS[0],
            name_of(SHARED_ID): TEXTS[1],
        }

    def write(self, entries, method=zipfile.ZIP_DEFLATED):
        with zipfile.ZipFile(self.file, "w", method) as archive:
            for name, content in entries:
                archive.writestr(name, content)

    def test_an_archive_lists_branches_and_objects_by_name(self):
        self.save("old")
        with zipfile.ZipFile(self.file) as archive:
            self.assertIsNone(archive.testzip())
            self.assertEqual(archive.namelist(),
                             ["README.txt", "branches/master.txt", "branches/topic.txt",
                              *sorted([name_of(OLD_ID), name_of(SHARED_ID)])])
            self.assertEqual(archive.read("branches/master.txt").decode(), OLD_ID + "\n")
            self.assertEqual(archive.read(name_of(OLD_ID)), TEXTS[0])
            readme = archive.read("README.txt").decode()
            self.assertTrue(readme.startswith(self.entries()["README.txt"]))
            for entry in archive.infolist():
                self.assertEqual(entry.date_time, (1980, 1, 1, 0, 0, 0))
                self.assertEqual(entry.external_attr >> 16, 0o100644)
                self.assertEqual(entry.extra, b"")

    def test_large_objects_are_deflated(self):
        self.save("old", "new")
        large = hashlib.sha256(b"L" * 20000).hexdigest()
        with zipfile.ZipFile(self.file) as archive:
            self.assertIsNone(archive.testzip())
            entry = archive.getinfo(name_of(large))
            self.assertEqual(entry.compress_type, zipfile.ZIP_DEFLATED)
            self.assertLess(entry.compress_size, 100)
            self.assertEqual(archive.getinfo(name_of(OLD_ID)).compress_type, zipfile.ZIP_STORED)

    def test_an_empty_document_is_an_archive(self):
        self.assertEqual(self.run_program("describe").stdout, "")
        with zipfile.ZipFile(self.file) as archive:
            self.assertIsNone(archive.testzip())
            self.assertEqual(archive.namelist(), ["README.txt"])

    @unittest.skipUnless(shutil.which("unzip"), "unzip isn't there")
    def test_unzip_finds_no_fault(self):
        self.save("old", "new")
        subprocess.run(["unzip", "-tqq", self.file], check=True, timeout=60)

    def test_an_archive_of_another_program_is_a_document(self):
        entries = list(self.entries().items())
        for method in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
            for order in (entries, entries[::-1]):
                self.write([("objects/", ""), *order, ("notes.txt", "of a person")], method)
                self.assertEqual(self.describe(), OLD_STATE)
        self.save("new")
        self.assertEqual(self.describe(), NEW_STATE)
        with zipfile.ZipFile(self.file) as archive:
            self.assertNotIn("notes.txt", archive.namelist())

    def test_names_that_lead_elsewhere_are_ignored_and_dropped(self):
        names = ["../secret", "/etc/secret", "branches/../../secret.txt", "branches/%2e%2e.txt",
                 "branches/a/b.txt", "objects/../x.blob", "objects/ab/" + "c" * 63 + ".blob",
                 "objects/AB/" + "C" * 62 + ".blob", "values/%zz.txt", "values/..", "readme.txt"]
        self.write([*self.entries().items(), *((name, "x") for name in names)])
        self.assertEqual(self.describe(), OLD_STATE)
        self.save("new")
        with zipfile.ZipFile(self.file) as archive:
            self.assertEqual(set(names) & set(archive.namelist()), set())
        self.assertEqual(os.listdir(self.folder), ["document.zip"])

    def test_two_entries_of_one_name_are_refused(self):
        entries = list(self.entries().items())
        for name, content in entries:
            again = (name.replace(".object", ".blob"), content)
            with self.subTest(name), self.assertWarnsRegex(UserWarning, "Duplicate") \
                    if again[0] == name else self.subTest():
                self.write([*entries, again])
                self.assertEqual(self.describe(), "Damaged")

    def test_a_branch_that_was_changed_by_hand_is_damage(self):
        for name, content in (("branches/master.txt", SHARED_ID), ("branches/other.txt", OLD_ID),
                              ("branches/topic.txt", None), ("values/current.txt", "master")):
            with self.subTest(name):
                entries = self.entries()
                entries[name] = content
                self.write([(key, value) for key, value in entries.items() if value is not None])
                self.assertEqual(self.describe(), "Damaged")

    def test_an_archive_without_its_mark_is_no_document(self):
        entries = self.entries()
        del entries["README.txt"]
        self.write(entries.items())
        self.assertEqual(self.describe(), "Damaged")
        self.write([("README.txt", "Read this first.\n"), *entries.items()])
        self.assertEqual(self.describe(), "Damaged")

    def test_a_later_format_is_not_supported(self):
        self.write([("README.txt", "TalVcs document, format 2\n")])
        self.assertEqual(self.describe(), "Unsupported")

    def test_other_methods_of_compression_are_not_supported(self):
        entries = self.entries()
        with zipfile.ZipFile(self.file, "w") as archive:
            for name, content in entries.items():
                method = zipfile.ZIP_BZIP2 if "objects/" in name else zipfile.ZIP_STORED
                archive.writestr(name, content, method)
        self.assertEqual(self.describe(), "master: Unsupported\ntopic: Unsupported\n")

    def change(self, find, change):
        """Changes the header of an entry in the directory. `change` gets it with its place."""
        with open(self.file, "rb") as file:
            data = bytearray(file.read())
        for match in re.finditer(b"PK\x01\x02", bytes(data)):
            length = struct.unpack_from("<H", data, match.start() + 28)[0]
            if find in bytes(data[match.start() + 46:match.start() + 46 + length]):
                change(data, match.start())
        with open(self.file, "wb") as file:
            file.write(data)

    def test_a_wrong_checksum_is_damage(self):
        self.write(self.entries().items())
        self.change(OLD_ID[2:].encode(), lambda data, at: struct.pack_into("<I", data, at + 16, 7))
        self.assertEqual(self.describe(), OLD_STATE.replace("of the old state", "Damaged"))

    def test_a_size_that_no_deflated_entry_can_have_is_damage(self):
        self.write(self.entries().items())
        for size in (0, 5, 17, 100, 100000, 0xFFFFFFF0):
            with self.subTest(size):
                self.change(OLD_ID[2:].encode(),
                            lambda data, at: struct.pack_into("<I", data, at + 24, size))
                self.assertEqual(self.describe(), OLD_STATE.replace("of the old state", "Damaged"))

    def test_sizes_of_64_bits_that_no_file_has_are_damage(self):
        self.write(self.entries().items())
        for size in (2**32, 2**40, 2**63, 2**64 - 1):
            for field in ("size", "compressed size", "place"):
                with self.subTest((size, field)):
                    self.write(self.entries().items())
                    self.claim(OLD_ID[2:].encode(), field, size)
                    self.assertIn(self.describe(),
                                  ("Damaged", OLD_STATE.replace("of the old state", "Damaged")))

    def claim(self, find, field, number):
        """Gives an entry in the directory a field of 64 bits."""
        with open(self.file, "rb") as file:
            data = bytearray(file.read())
        at = next(match.start() for match in re.finditer(b"PK\x01\x02", bytes(data))
                  if find in bytes(data[match.start() + 46:match.start() + 200]))
        place, width = {"compressed size": (20, "<I"), "size": (24, "<I"), "place": (42, "<I")}[field]
        struct.pack_into(width, data, at + place, 0xFFFFFFFF)
        name_length, extra_length = struct.unpack_from("<HH", data, at + 28)
        self.assertEqual(extra_length, 0)
        struct.pack_into("<H", data, at + 30, 12)
        extra = struct.pack("<HHQ", 1, 8, number)
        data[at + 46 + name_length:at + 46 + name_length] = extra
        end = data.rindex(b"PK\x05\x06")
        size, = struct.unpack_from("<I", data, end + 12)
        struct.pack_into("<I", data, end + 12, size + len(extra))
        with open(self.file, "wb") as file:
            file.write(data)

    def test_a_directory_of_64_bits_that_no_file_has_is_damage(self):
        for count, size, place in ((2**60, 100, 0), (5, 2**63, 0), (5, 100, 2**64 - 1),
                                   (2**64 - 1, 2**64 - 1, 2**64 - 1)):
            with self.subTest((count, size, place)):
                self.write(self.entries().items())
                with open(self.file, "rb") as file:
                    data = file.read()
                at = data.rindex(b"PK\x05\x06")
                record = struct.pack("<4sQHHIIQQQQ", b"PK\x06\x06", 44, 45, 45, 0, 0, count, count,
                                     size, place)
                locator = struct.pack("<4sIQI", b"PK\x06\x07", 0, at, 1)
                end = struct.pack("<4sHHHHIIH", b"PK\x05\x06", 0, 0, 0xFFFF, 0xFFFF, 0xFFFFFFFF,
                                  0xFFFFFFFF, 0)
                with open(self.file, "wb") as file:
                    file.write(data[:at] + record + locator + end)
                self.assertEqual(self.describe(), "Damaged")

    def test_a_pipe_is_not_waited_for(self):
        os.mkfifo(self.file)
        self.assertEqual(self.describe(), "Unsupported")

    def test_entries_that_share_bytes_are_refused(self):
        bomb = io.BytesIO()
        with zipfile.ZipFile(bomb, "w", zipfile.ZIP_DEFLATED) as archive:
            archive.writestr("objects/aa/" + "0" * 62 + ".blob", b"\0" * 10_000_000)
        data = bomb.getvalue()
        directory = data.index(b"PK\x01\x02")
        end = data.index(b"PK\x05\x06")
        header = data[directory:end]
        headers = b"".join(header.replace(b"aa/", b"%02x/" % number) for number in range(250))
        tail = bytearray(data[end:])
        struct.pack_into("<HHI", tail, 8, 250, 250, len(headers))
        with open(self.file, "wb") as file:
            file.write(data[:directory] + headers + tail)
        with zipfile.ZipFile(self.file) as archive:
            self.assertEqual(len(archive.infolist()), 250)
        self.assertEqual(self.describe(), "Damaged")

    @unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
    def test_the_medium_has_an_archive_before_it_gets_its_name(self):
        self.save("old")
        trace = os.path.join(self.folder, "trace")
        subprocess.run(["strace", "-qq", "-y", "-o", trace, "-e",
                        "trace=pwrite64,fsync,rename,renameat,renameat2",
                        PROGRAM, self.file, "new"], check=True, timeout=60)
        with open(trace, encoding="utf-8", errors="replace") as lines:
            calls = [re.match(r"(\w+)\((?:\d+<([^>]*)>)?", line).groups()
                     for line in lines if self.folder in line]
        steps = [calls[0]]
        for call in calls:
            if call != steps[-1]:
                steps.append(call)
        self.assertEqual([name for name, _ in steps], ["pwrite64", "fsync", "rename", "fsync"])
        self.assertEqual([path for _, path in steps],
                         [self.file + ".new", self.file + ".new", None, self.folder])


if __name__ == "__main__":
    unittest.main()
