"""Compares merges of generated texts with those of `git merge-file`.

Both must merge to the same text, or both must find a conflict. MERGE_TRIPLES sets the number of
generated triples, MERGE_SEED the first seed.
"""

import os
import pathlib
import random
import subprocess
import tempfile
import unittest

WORDS = "alpha beta gamma delta epsilon zeta eta theta iota kappa lambda mu".split()
CONFLICTS_AT_MOST = 127  # the exit code says how many


def new_line(generator):
    """Returns a line: often a new one, at times one of the few that texts repeat."""
    if generator.random() < 0.2:
        return generator.choice(["\n", "}\n", "  return;\n"])
    return " ".join(generator.choice(WORDS) for _ in range(4)) + f" {generator.randrange(1000)}\n"


def edited(generator, lines, most_edits):
    lines = list(lines)
    for _ in range(generator.randint(0, most_edits)):
        at = generator.randint(0, len(lines))
        count = generator.randint(0, 3)
        lines[at:at + count] = [new_line(generator) for _ in range(generator.randint(0, 3))]
    return lines


def text_of(generator, lines):
    text = "".join(lines)
    return text[:-1] if generator.random() < 0.1 else text


def triple(seed):
    generator = random.Random(seed)
    root = [new_line(generator) for _ in range(generator.choice([0, 1, 3, 10, 40, 120]))]
    shared = edited(generator, root, 1)  # a change that both sides have
    left = edited(generator, shared, 4)
    right = edited(generator, shared, 4)
    return tuple(text_of(generator, lines).encode() for lines in (root, left, right))


def merge_all(triples):
    """Returns for each triple whether there are conflicts, and the merged text."""
    texts = b"".join(b"%d\n%s" % (len(text), text) for each in triples for text in each)
    output = subprocess.run([os.environ["MERGE_TEXTS"]], input=texts, check=True,
                            capture_output=True).stdout
    while output:
        header, _, output = output.partition(b"\n")
        conflicts, size = map(int, header.split())
        yield conflicts > 0, output[:size]
        output = output[size:]


def merge_by_git(folder, texts):
    paths = [folder / name for name in ("root", "left", "right")]
    for path, text in zip(paths, texts):
        path.write_bytes(text)
    root, left, right = paths
    result = subprocess.run(["git", "merge-file", "-p", "-L", "ours", "-L", "base", "-L", "theirs",
                             left, root, right], capture_output=True, check=False, cwd=folder)
    if result.returncode > CONFLICTS_AT_MOST:
        raise RuntimeError(result.stderr.decode())
    return result.returncode > 0, result.stdout


class MergeFileTest(unittest.TestCase):
    def test_merges_like_git(self):
        first = int(os.environ.get("MERGE_SEED", "1"))
        triples = [triple(first + i) for i in range(int(os.environ.get("MERGE_TRIPLES", "1000")))]
        conflicts = 0
        same_markers = 0
        merges = list(merge_all(triples))
        self.assertEqual(len(merges), len(triples))
        with tempfile.TemporaryDirectory() as folder:
            for i, (texts, (has_conflict, text)) in enumerate(zip(triples, merges)):
                with self.subTest(seed=first + i):
                    expected_conflict, expected = merge_by_git(pathlib.Path(folder), texts)
                    self.assertEqual(has_conflict, expected_conflict)
                    if not has_conflict:
                        self.assertEqual(text, expected)
                    else:
                        conflicts += 1
                        same_markers += text == expected
        print(f"{len(triples)} triples, {conflicts} with conflicts, {same_markers} of them with the same text")
        # The generator must make both outcomes often.
        self.assertGreater(conflicts, len(triples) // 10)
        self.assertLess(conflicts, len(triples) * 9 // 10)


if __name__ == "__main__":
    unittest.main()
