#!/usr/bin/env python3
"""Writes the seeds of the corpora: inputs that say what a fuzzer would take long to guess.

Usage: make_corpus.py FOLDER

What the inputs mean stands at the top of each target, and in streams.h. Files that a fuzzer found
stand beside the seeds, named by their digests, and are left alone.
"""

import hashlib
import pathlib
import random
import sys
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


SEEDS = {
    "load": load_seeds,
    "tree": tree_seeds,
    "commit_text": commit_seeds,
    "operations": operations_seeds,
    "path": path_seeds,
    "utf": utf_seeds,
    "directory_store": directory_seeds,
    "journal": journal_seeds,
    "encryption": encryption_seeds,
    "object_codec": codec_seeds,
    "pack": pack_seeds,
}


def main():
    folder = pathlib.Path(sys.argv[1])
    for target, seeds in SEEDS.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, data in seeds():
            (folder / target / name).write_bytes(data)


if __name__ == "__main__":
    main()
