#!/usr/bin/env python3
"""Writes the seeds of the corpora: inputs that say what a fuzzer would take long to guess.

Usage: make_corpus.py FOLDER

What the inputs mean stands at the top of each target, and in streams.h. Files that a fuzzer found
stand beside the seeds, named by their digests, and are left alone.
"""

import hashlib
import io
import pathlib
import random
import sqlite3
import sys
import tempfile
import zipfile
import zlib

END = b"\xff"  # of a part
AUTHOR = b"author Ann <ann@example.org> 1000000000 +0130\ncommitter Ann <ann@example.org> 1000000000 +0130\n"


def ref(letter):
    """The id of the object with that letter, or the one that consists of that character."""
    return b"\x01" + letter.encode()


def obj(kind, data, key="o"):
    return key.encode() + kind + b" \x02\0" + data + END


def branch(name, letter):
    return b"b" + name.encode("utf-8", "surrogatepass") + b"\n" + ref(letter) + END


def blob(data, key="o"):
    return obj(b"blob", data, key)


def record(kind, name, letter):
    mode = b"40000" if kind == "tree" else b"100644"
    return mode + b" " + kind.encode() + b" " + name.encode("utf-8", "surrogatepass") + b"\0" + ref(letter)


def tree(*records, key="o"):
    return obj(b"tree", b"".join(records), key)


def commit_text(root, parent=None, description="what was done", author=AUTHOR):
    text = b"tree " + (ref(root) if root else b"") + b"\n"
    if parent:
        text += b"parent " + ref(parent) + b"\n"
    return text + author + b"\n" + description.encode() + b"\n"


def commit(root, parent=None, description="what was done", key="o"):
    return obj(b"commit", commit_text(root, parent, description), key)


def load_seeds():
    file = record("blob", "file", "A")
    good = blob(b"1") + tree(file) + commit("B") + branch("master", "C")
    chain = (blob(b"1") + tree(file) + commit("B", None, "one") + blob(b"2")
             + tree(record("tree", "dir", "B"), record("blob", "file", "D")) + commit("E", "C", "two")
             + branch("a", "F") + branch("feature/b", "C"))
    yield "one-commit", b"\0" + good
    yield "two-commits", b"\1" + chain
    yield "rewritten", b"\xff" + chain
    yield "twice", b"\0" + good + END + good
    yield "two-stores", b"\2" + good + END + blob(b"3") + tree(record("blob", "file", "E")) + commit("F", "C", "on top") + branch("master", "G")
    yield "fork", b"\x0d" + good + commit("B", "C", "left") + commit("B", "C", "right") + branch("a", "D") + branch("b", "E")
    yield "empty", b""
    yield "branch-alone", b"\0" + branch("master", "A")
    yield "empty-branch", b"\0" + b"bmaster\n" + END
    yield "unnamed-branch", b"\0" + good + branch("", "C")
    yield "surrogate-branch", b"\1" + good + branch("\ud800/\U0001F600", "C")
    yield "tree-in-itself", b"\0" + blob(b"1") + tree(file, record("tree", "self", "1"), key="1") + commit("1") + branch("m", "C")
    yield "trees-in-a-circle", (b"\0" + blob(b"1") + tree(record("tree", "x", "2"), file, key="1")
                                + tree(record("tree", "y", "1"), file, key="2") + commit("1") + branch("m", "D"))
    yield "commits-in-a-circle", b"\0" + commit(None, "2", "1", "1") + commit(None, "1", "2", "2") + branch("a", "1") + branch("b", "2")
    yield "own-parent", b"\0" + commit(None, "1", "1", "1") + branch("m", "1")
    yield "missing-parent", b"\0" + good + commit("B", "9", "cut") + branch("cut", "D")
    yield "missing-blob", b"\1" + tree(record("blob", "gone", "9")) + commit("A") + branch("m", "B")
    yield "missing-tree", b"\1" + commit("9") + branch("m", "A")
    yield "unknown-type", b"\0" + blob(b"1") + tree(file, b"100644 link x\0" + ref("A")) + commit("B") + branch("m", "C")
    yield "names", (b"\1" + blob(b"1") + tree(record("blob", "", "A"), record("blob", "/a//b/", "A"), record("blob", "a", "A"),
                                           record("blob", "\uff5e", "A"), record("blob", "\U0001F600", "A"), record("blob", "\ud800", "A"))
                    + commit("B") + branch("m", "C"))
    yield "unordered", b"\0" + blob(b"1") + tree(record("blob", "b", "A"), record("blob", "a", "A"), record("blob", "b", "A")) + commit("B") + branch("m", "C")
    yield "both-kinds", b"\1" + blob(b"1") + tree(file) + tree(record("blob", "x", "A"), record("tree", "x", "B")) + commit("C") + branch("m", "D")
    yield "shared-root", b"\1" + blob(b"1") + tree(file) + commit("B", None, "1") + commit("B", "C", "2") + commit("B", "D", "3") + branch("m", "E")
    yield "empty-tree", b"\1" + tree() + commit("A") + branch("m", "B")
    yield "size-lies", b"\0" + b"oblob 99999999999999999999\0x" + END + b"otree 1\0" + record("blob", "f", "A") + END + commit("B") + branch("m", "C")
    yield "no-zero", b"\0" + b"oblob 1" + END + b"otree " + END + b"ocommit 5" + END + branch("m", "C")
    yield "type-begins-right", b"\0" + b"oblobby 1\0x" + END + b"otreeish 1\0" + record("blob", "f", "A") + END + commit("B") + branch("m", "C")
    yield "one-stream-of-all-kinds", b"\0" + tree(record("blob", "b", "1"), record("tree", "t", "1"), key="1") + commit("1", "1") + branch("m", "1") + branch("n", "B")


def tree_seeds():
    file = record("blob", "file", "a")
    sub = record("tree", "sub", "l")
    yield "empty", b""
    yield "plain", b"tree 1\0" + file + END
    yield "with-subtree", b"tree 1\0" + file + sub + END + b"tree 1\0" + record("blob", "file", "b") + sub + END + b"aother\nbfile\n"
    yield "nested", b"tree 1\0" + record("tree", "s", "p") + END + b"tree 1\0" + record("tree", "s", "q") + END + b"adeep/er/x\ndsub/x\n"
    yield "circle", b"tree 1\0" + record("tree", "self", "t") + file + END
    yield "dropped", b"tree 1\0" + record("tree", "x", "u") + record("tree", "y", "v") + record("tree", "z", "Z") + record("blob", "w", "w") + END
    yield "wrong-kinds", b"tree 1\0" + record("blob", "x", "l") + record("tree", "y", "a") + END
    yield "hidden", b"tree 1\0" + record("tree", "n", "l") + record("blob", "n", "a") + END + b"an/x\nen\ndn/x\n"
    yield "unordered", b"tree 1\0" + record("blob", "b", "a") + record("blob", "a", "b") + record("blob", "b", "c") + END
    yield "wide-names", b"tree 1\0" + record("blob", "\U0001F600", "a") + record("blob", "\uff5e", "b") + record("blob", "\ud800", "c") + END
    yield "paths", b"tree 1\0" + record("blob", "/a//b/", "a") + record("tree", "a/c", "l") + record("blob", "//", "a") + END + b"da/b\nda/c/x\n"
    yield "cut-short", b"tree 1\0" + b"100644 blob file\0abc" + END + b"tree 1\0" + b"100644 blob"
    many = b"".join(record("blob", f"f{i:02}", "abc"[i % 3]) for i in range(20))
    fewer = b"".join(record("blob", f"f{i:02}", "abc"[i % 3]) for i in range(20) if i % 7)
    yield "chunks", b"tree 1\0" + many + END + b"tree 1\0" + fewer + END + b"af10a\ndf05\nef06\nbf19\n"


def commit_seeds():
    def packed(text, header=b"commit 1\0"):
        return header + text
    yield "empty", b""
    yield "plain", packed(commit_text("a"))
    yield "no-tree", packed(commit_text(None))
    yield "with-parent", packed(commit_text("a", "p"))
    yield "negative-zone", packed(commit_text("a", author=AUTHOR.replace(b"+0130", b"-0930")))
    yield "no-author", packed(b"tree " + ref("a") + b"\n\nwhat\n")
    yield "many-lines", packed(commit_text("a", description="first\nsecond\n\nparent of all"))
    yield "parent-in-text", packed(commit_text("a", description="a parent here"))
    yield "far-times", packed(commit_text("a", author=AUTHOR.replace(b"1000000000", b"99999999999999999999")))
    yield "before-all", packed(commit_text("a", author=AUTHOR.replace(b"1000000000", b"-9223372036854775808")))
    yield "odd-zones", packed(commit_text("a", author=b"author A <a> 1 +99999999\n"))
    yield "brackets", packed(commit_text("a", author=b"author >A< <a<b>>c> 1 +0000\n"))
    yield "tree-later", packed(b"x tree y\nparent \nauthor \n\n")
    yield "headers", b"commits 1\0tree \n"
    yield "no-line-end", packed(b"tree abc")
    yield "wide", packed(commit_text("a", author="author Änn😀 <ä@example> 1 +0000\n".encode(), description="é\0after"))


def packed_object_seeds():
    def packed(kind, data):
        return kind + b" \x02\0" + data
    two = record("blob", "a", "1") + record("tree", "b", "2")
    text = commit_text("1", "2")
    yield "blob", packed(b"blob", b"some data")
    yield "empty-blob", b"blob 0\0"
    yield "size-lies", b"blob 9\0some"
    yield "leading-zero", b"blob 04\0some"
    yield "other-type", packed(b"note", b"some")
    yield "tree", packed(b"tree", two)
    yield "empty-tree", b"tree 0\0"
    yield "wide-names", packed(b"tree", record("blob", "\ud800", "1") + record("blob", "\U0001F600", "2") + record("blob", "\uff5e", "3"))
    yield "code-point-order", packed(b"tree", record("blob", "\uff5e", "1") + record("blob", "\U0001F600", "2"))
    yield "unordered", packed(b"tree", record("tree", "b", "1") + record("blob", "a", "2"))
    yield "one-name-twice", packed(b"tree", record("blob", "a", "1") + record("tree", "a", "2"))
    yield "separator-in-name", packed(b"tree", record("blob", "a/b", "1"))
    yield "empty-name", packed(b"tree", record("blob", "", "1"))
    yield "other-mode", packed(b"tree", b"100755 blob a\0" + ref("1"))
    yield "capital-id", packed(b"tree", record("blob", "a", "A"))
    yield "cut-record", packed(b"tree", two[:-1])
    yield "bad-utf8", packed(b"tree", b"100644 blob \xc0\x80\0" + ref("1"))
    yield "commit", packed(b"commit", text)
    yield "no-root", packed(b"commit", commit_text(None))
    yield "lines", packed(b"commit", commit_text("1", None, "first\n\nparent 2\ncommitter A <a> 1 +0000"))
    yield "two-infos", packed(b"commit", text.replace(b" +0130", b" +0200", 1))
    yield "west", packed(b"commit", text.replace(b"+0130", b"-0130"))
    yield "west-of-nothing", packed(b"commit", text.replace(b"+0130", b"-0030"))
    yield "long-zone", packed(b"commit", text.replace(b"+0130", b"+1234530"))
    yield "last-second", packed(b"commit", text.replace(b"1000000000", b"2147483647"))
    yield "first-second", packed(b"commit", text.replace(b"1000000000", b"-2147483648"))
    yield "too-late", packed(b"commit", text.replace(b"1000000000", b"2147483648"))
    yield "brackets", packed(b"commit", text.replace(b"Ann <", b"A> 1 <+0000 <"))
    yield "committer-in-name", packed(b"commit", text.replace(b"Ann", b"A\ncommitter B <b> 1 +0000"))
    yield "zero-in-text", packed(b"commit", text.replace(b"what", b"wh\0t"))
    yield "no-line-end", packed(b"commit", text[:-1])


def path_seeds():
    yield "empty", b""
    yield "plain", b"doc" + END + b"a/b/c" + END + b"master"
    yield "separators", b"/" + END + b"//a///b//" + END + b"/"
    yield "wide", "dœc".encode() + END + "é/\U0001F600".encode() + END + "\ud800".encode("utf-8", "surrogatepass")
    yield "id", b"" + END + b"0123456789abcdef" * 4 + END + b"feature/x"
    yield "numbers", b" +12" + END + b"-9223372036854775809" + END + b"007x"
    yield "zero", b"a\0b" + END + b"\0" + END + b"c\0/d"


def utf_seeds():
    text = "plain text of some length, é, \uff5e, \U0001F600"
    yield "empty", b""
    yield "text", text.encode()
    yield "units", text.encode("utf-16-le")
    yield "surrogates", "\ud800a\udc00\udfff\ud83d".encode("utf-8", "surrogatepass")
    yield "halves-of-a-pair", "\ud83d\ude00".encode("utf-8", "surrogatepass")
    yield "maximal-subparts", bytes.fromhex("61f18080e180c262806380bf64")
    yield "overlong", bytes.fromhex("c080c1bfe080bfe09fbff08080aff08f8080")
    yield "beyond", bytes.fromhex("f4908080f5808080f888808080fcfeff")
    yield "cut", bytes.fromhex("e282") + b"12345678" + bytes.fromhex("eda0eda080edbf")
    yield "limits", "\x00\x7f\x80\u07ff\u0800\ud7ff\ue000\ufffd\uffff\U00010000\U0010ffff".encode()


def operations_seeds():
    for number in range(12):
        generator = random.Random(number)
        yield f"random-{number:02}", generator.randbytes(40 + 60 * number)


def directory_seeds():
    yield "empty", b""
    yield "save", b"\0doc\nS" + b"bmaster\nabc\nooone object\nC" + b"L\nRbmaster\nN"
    yield "two-saves", b"\1\nbmaster\n1\nooA\nooB\nCbmaster\n2\nooA\nCL\nF"
    yield "removal", b"\0r\nooA\nbx\n1\nCX.vcs\nooB\nCN"
    yield "odd-names", "\0\nb../../x\n1\nb/etc/passwd\n2\nb\\\n3\nb\ud800\n4\nb\n5\np../up\n6\np/abs\n7\nCL\n".encode("utf-8", "surrogatepass")
    yield "abandoned", b"\0d\nooA\nA" + b"bx\n1\nCN"
    yield "reader", b"\0d\nooA\nbx\n1\nCKooB\nbx\n2\nCVKV"
    yield "faults", b"\2d\nooA\nbx\n1\nCx\x07ooB\nbx\n2\nCNV"
    yield "state", b"\0d\nooA\nbx\n1\nCd\1TalVcs store 1\n0 objects\n1 streams\n1 1\n"
    yield "empty-state", b"\0d\nd\1TalVcs store 1\n0 objects\n0 streams\n"
    yield "full-state", b"\0d\nd\1TalVcs store 1\n1 objects\n" + b"k" * 32 + b"1 streams\n19 1\nd/.vcs/refs/heads/x1"
    yield "damaged-state", b"\0d\nbx\n1\nCd\0nonsense"
    yield "fake-objects", b"\0d\nf0\nfA\nfa\nCN"


def journal_record(payload, link=bytes(8)):
    framed = b"\nREC" + len(payload).to_bytes(4, "little") + link + payload
    return framed + hashlib.sha256(framed).digest()


def journal_seeds():
    header = b"TalVcs store 2\nrequires\n"
    name = (1).to_bytes(4, "little") + b"m"
    first = journal_record(b"r" + bytes(8) + b"h" + name + b"\xab" * 32 + b"v" + name + name)
    second = journal_record(b"d" + name + b"x" + name, first[-32:-24])
    yield "empty", b""
    yield "journal", b"b" + header + first + second
    yield "torn-tail", b"b" + header + first + second[:-5]
    yield "damaged", b"b" + header + first[:30] + b"?" + first[31:] + second
    yield "wrong-link", b"b" + header + first + first
    yield "later-version", b"bTalVcs store 3\nrequires\n" + first
    yield "feature", b"bTalVcs store 2\nrequires later\n" + first
    packs = journal_record(b"r" + bytes(8) + b"p" + bytes(4) + bytes(8) + b"t" + b"\xab" * 32)
    yield "packs", b"bTalVcs store 2\nrequires packs\n" + packs
    yield "steps", b"rhmaster\n1Rhmaster\n2htopic\n3Rdtopic\nvnote\ntext\nRxnote\nn\7R"
    yield "payloads", b"rp" + b"h" + name + b"\xab" * 32 + END + b"pz" + END + b"p\x72" + bytes(8) + END
    yield "cut", b"rhmaster\n1Rhmaster\n2RDc\0\xb0c\0\x60c\0\x20"
    yield "flips", b"rhmaster\n1Rhmaster\n2RDf\0\x20?f\0\x80?f\0\xc0?"
    yield "more-behind", b"rhmaster\n1RDa\nREC" + bytes(40) + END + b"agarbage" + END


def zip_state(heads, values=()):
    text = b"".join(b"branch %d %s %s\n" % (len(name), name, head) for name, head in sorted(heads))
    text += b"".join(b"value %d %s %d %s\n" % (len(name), name, len(value), value)
                     for name, value in sorted(values))
    return b"TalVcs document, format 1\nstate " + hashlib.sha256(text).hexdigest().encode() + b"\n"


def zip_archive(entries, method=zipfile.ZIP_DEFLATED):
    target = io.BytesIO()
    with zipfile.ZipFile(target, "w", method) as archive:
        for name, content in entries:
            archive.writestr(zipfile.ZipInfo(name), content, method)
    return target.getvalue()


def zip_seeds():
    content = b"blob 100\0" + b"x" * 100
    identifier = hashlib.sha256(content).hexdigest()
    head = identifier.encode()
    entry = (f"objects/{identifier[:2]}/{identifier[2:]}.blob", content)
    whole = [("README.txt", zip_state([(b"m", head)], [(b"v", b"1")])), ("branches/m.txt", head + b"\n"),
             entry, ("values/v.txt", b"1")]
    good = zip_archive(whole)
    directory = good.index(b"PK\x01\x02")
    yield "empty", b""
    yield "nothing-in-it", b"r" + zip_archive([])
    yield "empty-document", b"r" + zip_archive([("README.txt", zip_state([]))])
    yield "document", b"r" + good
    yield "stored", b"r" + zip_archive(whole, zipfile.ZIP_STORED)
    yield "bzip2", b"r" + zip_archive(whole, zipfile.ZIP_BZIP2)
    yield "another-kind", b"r" + zip_archive([*whole, (entry[0].replace(".blob", ".tree"), content)])
    yield "wrong-state", b"r" + zip_archive([*whole, ("branches/other.txt", head)])
    yield "odd-names", b"r" + zip_archive([*whole, ("../x", b"x"), ("branches/a/b.txt", head), ("values/%zz.txt", b"x"),
                                           ("branches/%2Fx.txt", head)])
    yield "later-format", b"r" + zip_archive([("README.txt", b"TalVcs document, format 2\n")])
    yield "cut", b"r" + good[:-10]
    yield "without-a-directory", b"r" + good[:directory]
    yield "lying-size", b"r" + good[:directory] + good[directory:].replace(
        len(content).to_bytes(4, "little"), (1 << 31).to_bytes(4, "little"))
    yield "more-at-the-end", b"r" + good + b"more"
    yield "more-at-the-beginning", b"rmore" + good
    yield "built", b"boblob 3\0one" + END + b"hmaster\n\1hmaster\n\2hother\n\1vcurrent\nmaster\n"
    yield "long-names", b"bh" + b"n" * 300 + b"\n\1v" + b"\0/%" * 50 + b"\nx\n"
    yield "damaged", b"bo" + b"x" * 200 + END + b"hm\n\1Df\0\x30?f\0\x90?f\1\x20?"
    yield "cut-short", b"bhm\n\1Dc\1\0"


def encryption_seeds():
    header = bytes.fromhex(
        "54616c56637320656e6372797074696f6e20310a73616c74206f66203136206279746573020000004000000064656667"
        "68696a6b6c6d6e6f707172737475767778797a7b8055bb84b17b27e40df1b260d95836c803e63c9a1af4af3617df28e9"
        "a7585602eced507cc7c966de09dbe2c3d3c60917cd77544368cd49257bc4562e89a4b6a9fe8010242aa5ff206997a8d0"
        "52917cc9")
    packed = b"blob 5\0hello"
    yield "header", b"h" + header
    yield "cut-header", b"h" + header[:60]
    yield "later-version", b"hTalVcs encryption 2\n" + header[20:]
    yield "other-key", b"k\x01\x08" + bytes(72)
    yield "same-fields", b"k\x02\x40" + header[44:116]
    yield "no-work", b"k\0\0" + header[44:116]
    yield "much-work", b"k\xff\xff" + header[44:116]
    yield "record", b"r" + bytes(54)
    yield "short-record", b"r" + bytes(39)
    yield "plain", b"e\0\x0c" + packed
    yield "wrong-size", b"e\0\x0d" + packed
    yield "difference", b"e\x02\x0c" + bytes(33) + packed
    yield "compressed", b"e\x01\x0c" + packed
    yield "unknown-encoding", b"e\x09\x0c" + packed
    yield "branch-name", b"n" + b"3921324bb362c4fb" * 5 + b"00"
    yield "odd-branch-name", b"nabc"
    yield "value", b"v" + bytes(46)
    yield "branch", b"bmaster\nvalue"
    yield "empty-branch", b"b\n"


def codec_seeds():
    base = b"blob 62\0The first line stays. The second one of them is about apples.\n"
    following = b"blob 61\0The first line stays. The second one of them is about pears.\n"
    # Frames of the program zstd without their magic numbers, of the second text: alone, and with the
    # first as its prefix.
    alone = bytes.fromhex(
        "0058FD010052C40E15B03707709AEC345963885176539F015CD54D27511B41793B1F4D04CFF5AA86531661CDB0"
        "0543C2AF93697972F99AA9D57C53A84E0610861E5C2700")
    after_base = bytes.fromhex(
        "2045AD000070626C6F6220363170656172732E0A01004CCE6004")
    def form(method, payload, size=69):
        return bytes([method, size]) + payload
    def difference(base_digit, position, payload=after_base):
        return form(2, bytes(31) + bytes([base_digit, position]) + payload)
    yield "plain", b"b" + END + form(0, following)
    yield "compressed", b"b" + END + form(1, alone)
    yield "padded", b"b" + END + form(1, alone + bytes(3))
    yield "wrong-size", b"b" + END + form(1, alone, 70)
    yield "difference", b"b" + base + END + difference(0, 1)
    yield "cut", b"b" + base + END + difference(0, 1)[:-3]
    yield "other-base", b"b" + base[1:] + END + difference(0, 1)
    yield "unknown", b"b" + END + form(3, following)
    yield "text", b"e\1" + base + END + following
    yield "zeros", b"e\7" + END + bytes(300)
    yield "chain", b"c" + END.join([form(0, base, 70), difference(0, 1), difference(0, 2), difference(2, 3)])
    yield "circle", b"c" + END.join([difference(1, 1), difference(0, 1), difference(2, 3)])
    yield "lost-base", b"c" + difference(7, 5)


def text_merge_seeds():
    def seed(root, left, right, bound=255, written=4):
        return bytes([bound, written]) + END.join(text.encode() for text in (root, left, right))

    root = "a\nb\nc\nd\ne\nf\n"
    yield "empty", b""
    yield "separate", seed(root, "A\nb\nc\nd\ne\nf\n", "a\nb\nc\nd\nE\nf\n")
    yield "conflict", seed(root, "a\nx\nL\ny\nd\ne\nf\n", "a\nx\nR\ny\nd\ne\nf\n")
    yield "with-root", seed(root, "a\nb\nL\nd\ne\nf\n", "a\nb\nR\nd\ne\n", written=5)
    yield "no-line-end", seed("a\nb", "a\nL", "a\nR", written=3)
    yield "returns", seed("a\r\nb\r\n", "a\r\nL\r\n", "a\r\nR\r\n")
    yield "equal-lines", seed("x\na\na\na\ny\n", "x\na\na\ny\n", "x\na\nb\na\na\na\ny\n")
    yield "chain", seed("1\n2\n3\n4\n5\n6\n", "1\nx\nx\n4\ny\n6\n", "1\n2\nz\nz\nz\n6\n", written=2)
    yield "bounded", seed("a\nsome\nb\nother\na\nb\n", "b\nsome\na\nother\nb\na\n", "a\nb\na\nb\n", bound=0)
    yield "half-bounded", seed("a\nb\na\nb\nc\n" * 3, "b\na\nc\nb\na\n" * 3, "c\nb\na\n" * 4, bound=40)
    yield "added", seed("", "a\nb\n", "a\nc\n")
    yield "words", seed("int old = 1;\n", "int new_one = 12;\n", "int gr\u00fc\u00df = (1);\n")
    yield "binary", seed("a\0\n", "b\n", "c\n")


def json_seeds():
    def seed(root, left, right, choice=0):
        return bytes([choice]) + END.join(text.encode() for text in (root, left, right))

    yield "empty", b""
    yield "members", seed('{"a":1,"b":2,"c":3}', '{"a":5,"b":2,"c":3}', '{"a":1,"b":2,"d":[]}')
    yield "conflicts", seed('{"a":1,"b":{"c":1},"d":0}', '{"a":2,"b":{"c":2}}', '{"a":3,"b":{"c":3},"d":1}', 2)
    yield "elements", seed('[{"id":1,"x":0},{"id":2}]', '[{"id":1,"x":5},{"id":3}]', '[{"id":2},{"id":1,"x":6}]', 1)
    yield "keys", seed('[{"k":"a"}]', '[{"k":"b"},{"k":"a","id":1}]', '[{"k":"a","id":2},{"k":"c"}]', 3)
    yield "indented", seed('{"a":1}', '{\r\n\t"a": 2,\r\n\t"b": {}\r\n}\r\n', '{"a":1,"c":[true,false,null]}')
    yield "escapes", seed('"\\u0041\\ud83d\\ude00\\n\\/"', '"A\U0001F600\\u000a/"', '"\\b\\f\\r\\t\\"\\\\"')
    yield "numbers", seed("-0.10E+05", "[0,-1,1.5e-7]", "123456789012345678901234567890")
    yield "scalars", seed("null", " true ", "false")
    yield "half-pair", seed('"\\ud800"', '"\\udc00x"', '"\\ud800\\u0041"')
    yield "twice", seed('{"a":1,"\\u0061":2}', "[1,]", "{]")
    yield "deep", seed("[" * 300, "[" * 256 + "]" * 256, '{"":' * 40 + "0" + "}" * 40)
    yield "other-text", b"\0\"\xc3\"" + END + b"\"\xed\xa0\x80\"" + END + b"\xef\xbb\xbf{}"


def workspace_seeds():
    """Programs for two workspaces; what a step needs stands at the top of fuzz_workspace.cpp."""
    second = 128
    master, topic = b"\x00", b"\x80"
    a, text, json, nested, folder = (bytes([place]) for place in (0, 1, 2, 5, 6))

    def step(operation, *parts, by=0):
        return bytes([operation | by]) + b"".join(parts)

    def write(path, content, by=0):
        return step(0, path, content.encode() + b"\n", by=by)

    def commit(message, by=0):
        return step(23, message.encode() + b"\n", by=by)

    def checkpoint(label, gesture):
        return step(7, label.encode() + b"\n", gesture.encode() + b"\n")

    base = write(a, "1") + write(text, "one|two|three|") + write(json, '{"x": 1, "y": 1}') + commit("base")
    fork = base + step(10, topic, b"\x00") + write(text, "ONE|two|three|") + write(a, "2") + commit("ours")
    fork += step(11, topic) + write(text, "one|two|THREE|") + write(a, "3") + commit("theirs") + step(11, master)
    yield "empty", b""
    yield "edits", base + step(3, a) + step(4, json, nested) + commit("moved") + step(4, folder, a) + step(3, folder)
    yield "undo", base + write(a, "2") + commit("x") + step(8) + step(9) + step(8) + step(8) + step(9)
    yield "gesture", base + b"".join(write(a, str(i)) + checkpoint("drag", "g") for i in range(3)) + step(8)
    yield "merge", fork + step(12, topic, b"\x03") + step(12, topic) + step(8)
    yield "picks", fork + step(13, b"\x00", b"\x01") + step(14, b"\x02", b"\x03") + step(15, b"\x04")
    yield "rebase", fork + step(20, topic, b"\x02") + step(22)
    yield "reload", base + write(a, "4", by=second) + step(16, b"\x01", by=second) + commit("mine", by=second) + \
        write(a, "5") + commit("late") + step(16, b"\x00") + commit("again")
    yield "forget", fork + step(18, b"tag\n", b"\x01") + step(19, b"\x01", b"\x00") + step(19, b"\x00", b"\x04") + \
        step(17, topic) + step(19, b"\x08", b"\x01") + step(21)
    yield "names", write(b"\xff" + b"a//b\n", "x") + write(b"\xff" + b"\xff\n", "x") + write(b"\xff" + b"..\n", "x") + \
        commit("\n") + step(10, b"\xff\xfe\n", b"\x00") + step(18, b"\xff\n", b"\x00") + step(11, b"\xff" + b"tags/x\n")


def pack_record(digit, encoded):
    framed = b"O" + len(encoded).to_bytes(3, "little") + bytes([digit]) * 32 + encoded
    return framed + zlib.crc32(framed).to_bytes(4, "little")


def index_page(content):
    return content + bytes(4092 - len(content))


def pack_seeds():
    one, two, three = (pack_record(digit, b"\0\5text" + bytes([digit])) for digit in (1, 2, 3))
    def number(value, size=8):
        return value.to_bytes(size, "little")
    def header(count):
        return index_page(b"TalVcs pack index 1\n" + bytes(8) + number(1 << 40 | 500) + number(7, 4) + number(count))
    def entries(first, count):
        return index_page(b"".join(number(index << 54) + number(1 << 40 | 14 + index)
                                   for index in range(first, first + count)))
    yield "empty", b""
    yield "records", b"s\0\0" + one + two + three
    yield "torn", b"s\0\x2b" + one + two[:-3]
    yield "damaged", b"s\0\x81" + one + two[:20] + b"?" + two[21:] + three
    yield "damaged-size", b"s\0\x81" + one + b"O\xff" + two[2:] + three
    yield "gap", b"s\0\xff" + one + b"OOOOOO" + two + bytes(60) + three
    yield "cut-kept", b"s\0\xff" + one + two
    yield "index", b"X" + header(3) + entries(0, 3)
    yield "large-index", b"X" + header(300) + entries(0, 255) + entries(255, 45) + index_page(number(0) + number(255 << 54))
    yield "index-without-checks", b"x" + header(3) + entries(0, 3)
    yield "long-index", b"X" + header(1 << 60) + entries(0, 3)
    yield "saves", b"owone\nhwtwo\nhnwthree\nh"
    yield "versions", b"ow" + b"a line of text " * 9 + b"\nhw" + b"a line of text " * 9 + b"and more\nhr\2n"
    yield "removal", b"owone\nwtwo\nwthree\nhr\2nwfour\nh"
    yield "failing", b"owone\nhe\x09wtwo\nhe\x20wthree\nhr\1nh"
    yield "failing-removal", b"owone\nwtwo\nhe\x18r\1nwthree\nh"
    yield "flips", b"owone\nhwtwo\nhf\0\x20?nwthree\nhf\0\x40?n"
    yield "cuts", b"owone\nhwtwo\nhc\0\x40nwthree\nhr\0n"
    yield "more-behind", b"owone\nhaO\5\0\0garbage\nnwtwo\nh"


SQLITE_TABLES = """
CREATE TABLE objects(
  number INTEGER PRIMARY KEY,
  id BLOB NOT NULL,
  size INTEGER NOT NULL,
  encoding INTEGER NOT NULL,
  data BLOB NOT NULL);
CREATE INDEX objects_by_id ON objects(substr(id, 1, 8));
CREATE TABLE heads(
  name TEXT NOT NULL PRIMARY KEY,
  id BLOB NOT NULL) WITHOUT ROWID;
CREATE TABLE host_values(
  name TEXT NOT NULL PRIMARY KEY,
  value BLOB NOT NULL,
  sum INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE meta(
  name TEXT NOT NULL PRIMARY KEY,
  value INTEGER NOT NULL) WITHOUT ROWID;
"""
SQLITE_PIECES = """
CREATE TABLE pieces(
  object INTEGER NOT NULL,
  piece INTEGER NOT NULL,
  data BLOB NOT NULL,
  PRIMARY KEY(object, piece)) WITHOUT ROWID;
INSERT INTO meta VALUES('log', 0);
"""


def sqlite_sum(name, value):
    digest = hashlib.sha256(name.encode() + b"\0" + value).digest()
    return int.from_bytes(digest[:8], "big", signed=True)


def sqlite_fill(connection, version, rows):
    """Makes the tables and fills them with the rows (id, size, encoding, data) and a head for each."""
    connection.executescript(f"PRAGMA page_size = 512; PRAGMA auto_vacuum = INCREMENTAL;"
                             f"PRAGMA application_id = 1415670870; PRAGMA user_version = {version};"
                             + SQLITE_TABLES)
    total = 0
    for number, row in enumerate(rows):
        connection.execute("INSERT INTO objects(id, size, encoding, data) VALUES(?, ?, ?, ?)", row)
        connection.execute("INSERT INTO heads VALUES(?, ?)", (f"branch {number}", row[0]))
        total ^= sqlite_sum(f"branch {number}", row[0])
    connection.execute("INSERT INTO meta VALUES('heads', ?), ('removals', 0)", (total,))
    connection.execute("INSERT INTO host_values VALUES('current', ?, ?)",
                       (b"master", sqlite_sum("current", b"master")))
    if version > 1:
        connection.executescript(SQLITE_PIECES)
    connection.commit()


def sqlite_document(version, rows, change="", files=()):
    """Returns the bytes of a document, and of files beside it while a last change is being made."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "document.tal"
        connection = sqlite3.connect(path)
        sqlite_fill(connection, version, rows)
        connection.executescript(change)
        result = [path.read_bytes()] + [path.with_name(path.name + end).read_bytes() for end in files]
        connection.close()
        return result


def sqlite_seeds():
    def plain(data):
        return hashlib.sha256(data).digest(), len(data), 0, data
    base = b"blob 62\0The first line stays. The second one of them is about apples.\n"
    following = b"blob 61\0The first line stays. The second one of them is about pears.\n"
    frame = bytes.fromhex("2045AD000070626C6F6220363170656172732E0A01004CCE6004")
    name = hashlib.sha256(base).digest()
    difference = (hashlib.sha256(following).digest(), 69, 1, bytes([2, 69]) + name + b"\1" + frame)
    rows = [plain(base), difference, plain(b"blob 900\0" + bytes(range(256)) * 3)]
    for version in (1, 2):
        first = [rows[0], rows[2]] if version == 1 else rows
        yield f"version-{version}", b"d" + sqlite_document(version, first)[0]
    yield "empty", b"d"
    yield "no-objects", b"d" + sqlite_document(2, [])[0]
    pieces = "UPDATE objects SET data = 2 WHERE number = 3;" + "".join(
        f"INSERT INTO pieces SELECT 3, {piece}, zeroblob(size / 2) FROM objects WHERE number = 3;"
        for piece in (0, 1))
    yield "pieces", b"d" + sqlite_document(2, rows, pieces)[0]
    document, log = sqlite_document(
        2, rows, "PRAGMA journal_mode = WAL; UPDATE meta SET value = 1 WHERE name = 'log';", ("-wal",))
    yield "log", b"w" + len(document).to_bytes(2, "little") + document + log
    document, journal = sqlite_document(
        2, rows, "PRAGMA cache_size = 1; BEGIN; UPDATE objects SET id = zeroblob(32);", ("-journal",))
    yield "journal", b"j" + len(document).to_bytes(2, "little") + document + journal
    circle = [plain(base), (bytes(32), 69, 2, bytes([2, 69]) + bytes(32) + b"\1" + frame)]
    yield "circle", b"d" + sqlite_document(2, circle)[0]
    yield "view", b"d" + sqlite_document(
        2, rows, "ALTER TABLE heads RENAME TO others; CREATE VIEW heads AS SELECT * FROM others;")[0]
    yield "trigger", b"d" + sqlite_document(
        2, rows, "CREATE TRIGGER t AFTER INSERT ON objects BEGIN DELETE FROM heads; END;")[0]


def sqlite_salvage_seeds():
    def plain(kind, data):
        packed = b"%s %d\0" % (kind, len(data)) + data
        return hashlib.sha256(packed).digest(), len(packed), 0, packed
    file = plain(b"blob", b"of the only file")
    tree = plain(b"tree", b"100644 blob file\0" + file[0].hex().encode())
    rows = [file, tree]
    for parent in (b"", b"parent %s\n"):
        parent = parent and parent % rows[-1][0].hex().encode()
        rows.append(plain(b"commit", b"tree " + tree[0].hex().encode() + b"\n" + parent + AUTHOR + b"\nwhat was done\n"))
    document = sqlite_document(2, rows)[0]
    yield "commits", b"d" + document
    yield "no-header", b"d" + bytes(512) + document[512:]
    yield "no-sum", b"d" + sqlite_document(2, rows, "UPDATE meta SET value = 1 WHERE name = 'heads';")[0]
    yield "no-heads", b"d" + sqlite_document(2, rows, "DELETE FROM heads WHERE name > 'branch 2';")[0]
    for name, data in sqlite_seeds():
        if not data.startswith(b"j"):
            yield name, data


SEEDS = {
    "json": json_seeds,
    "text_merge": text_merge_seeds,
    "load": load_seeds,
    "tree": tree_seeds,
    "commit_text": commit_seeds,
    "operations": operations_seeds,
    "packed_object": packed_object_seeds,
    "path": path_seeds,
    "utf": utf_seeds,
    "directory_store": directory_seeds,
    "journal": journal_seeds,
    "object_codec": codec_seeds,
    "encryption_store": encryption_seeds,
    "pack": pack_seeds,
    "zip_store": zip_seeds,
    "sqlite_salvage": sqlite_salvage_seeds,
    "sqlite_store": sqlite_seeds,
    "workspace": workspace_seeds,
}


def main():
    folder = pathlib.Path(sys.argv[1])
    for target, seeds in SEEDS.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, data in seeds():
            (folder / target / name).write_bytes(data)


if __name__ == "__main__":
    main()
