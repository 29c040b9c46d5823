#!/usr/bin/python3
"""README, docs and manual pages: what they tell people to type works and prints what they say.

README and docs are taken at their word in a fresh clone, with nothing else in it.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import wave

SOURCE = pathlib.Path(__file__).resolve().parents[2]
# Where a command is run that would be out of place here, such as one that installs or builds.
ELSEWHERE = re.compile(r"<!-- run by (\S+) -->\s*\Z")
INTERPRETERS = {"sh": ["bash", "-euc"], "python": [sys.executable, "-c"],
                "octave": ["octave-cli", "--quiet", "--eval"]}


def text(path):
    return (SOURCE / path).read_text("utf-8")


def blocks(document):
    """(language, content, what it prints, where it is run) of every fenced block."""
    for fence in re.finditer(r"^```(\w+)\n(.*?)^```$", document, re.M | re.S):
        output = re.match(r"\n```text\n(.*?)^```$", document[fence.end():], re.M | re.S)
        elsewhere = ELSEWHERE.search(document[:fence.start()])
        yield fence[1], fence[2], output and output[1], elsewhere and elsewhere[1]


def clone(folder):
    """The files of a fresh clone, in an empty folder."""
    listed = subprocess.run(["git", "-C", SOURCE, "ls-files", "-z"], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, check=False)
    if listed.returncode != 0:  # unpacked from an archive
        shutil.copytree(SOURCE, folder, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("build", ".git"))
    for name in filter(None, os.fsdecode(listed.stdout).split("\0")):
        path = pathlib.Path(folder, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        if (SOURCE / name).exists():
            shutil.copy2(SOURCE / name, path)


def prepare(folder):
    """What the examples of manual pages name: recordings, a numbered series, two collections."""
    with wave.open(str(SOURCE / "examples/sample.wav")) as file:
        samples = file.readframes(file.getnframes())

    def write(name, start, length, rate=16000):
        path = pathlib.Path(folder, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        with wave.open(str(path), "wb") as file:
            file.setparams((1, 2, rate, 0, "NONE", ""))
            file.writeframes(samples[2 * start:2 * (start + length)])
    write("speech.wav", 0, len(samples) // 2)
    for index in (1, 2, 3, 7):
        write(f"utt{index:03}.wav", 2000 * index, 8000)
    for index in range(3):
        write(f"corpus/a/{index}.wav", 9000 * index, 9000)
    write("mixed/plain.wav", 0, 8000)
    write("mixed/wide.wav", 0, 40000, rate=44100)
    subprocess.run(["sox", "mixed/wide.wav", "music.flac"], cwd=folder, check=True)


def anchors(document):
    """What links to a document may name behind #: its headings."""
    headings = re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```$", "", document, flags=re.M | re.S),
                          re.M)
    return {re.sub(r"[^-\w]", "", heading.lower().replace(" ", "-")) for heading in headings}


class DocsTest(unittest.TestCase):
    def run_document(self, name, document, setup):
        with tempfile.TemporaryDirectory(prefix="nalveo16-docs.") as folder:
            setup(folder)
            for language, content, expected, elsewhere in blocks(document):
                if elsewhere:
                    for line in filter(None, content.splitlines()):
                        self.assertIn(re.sub(r"\s+#.*", "", line), text(elsewhere), name)
                    continue
                if language == "c":
                    source = re.match(r"/\* (\w+\.c)", content)[1]
                    pathlib.Path(folder, source).write_text(content, "utf-8")
                if language not in INTERPRETERS:
                    self.assertIn(language, ("c", "text", "bibtex"), name)
                    continue
                run = subprocess.run([*INTERPRETERS[language], content], cwd=folder, text=True,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
                self.assertEqual(run.returncode, 0, f"{name}:\n{content}\n{run}")
                if expected is not None:
                    self.assertEqual(run.stdout.strip(), expected.strip(), f"{name}:\n{content}")

    def test_documents(self):
        for name in "README.md", "CONTRIBUTING.md", *sorted(
                str(path.relative_to(SOURCE)) for path in SOURCE.glob("docs/*.md")):
            with self.subTest(name):
                self.run_document(name, text(name), clone)
                for target in re.findall(r"\]\((?!\w+:)([^)]+)\)", text(name)):
                    path, _, anchor = target.partition("#")
                    path = (SOURCE / name).parent / path if path else SOURCE / name
                    self.assertTrue(path.exists(), f"{name}: {target}")
                    if anchor:
                        self.assertIn(anchor, anchors(text(path)), f"{name}: {target}")

    def test_manual_pages(self):
        for name in ("nalveo16", "nalveo16-synth", "nalveo16-compare", "nalveo16-plot",
                     "nalveo16-corpus"):
            page = subprocess.run(["man", "-l", SOURCE / f"man/{name}.1"],
                                  env={**os.environ, "MANWIDTH": "200", "LC_ALL": "C"}, check=True,
                                  stdout=subprocess.PIPE, text=True).stdout
            examples = re.findall(r"^\.EX\n(.*?)^\.EE$", text(f"man/{name}.1"), re.M | re.S)
            code = "\n".join(examples).replace(r"\-", "-").replace(r"\e", "\\").replace(
                r"\(aq", "'")
            with self.subTest(name):
                self.assertNotIn(r"\(", code)
                self.run_document(name, f"```sh\n{code}\n```\n", prepare)
                # What the companions say they take, their pages explain.
                if name != "nalveo16":
                    # The synthesiser, as the analyser, tells its help without arguments.
                    asked = [name] if name == "nalveo16-synth" else [name, "--help"]
                    said = subprocess.run(asked, stdout=subprocess.PIPE, check=True,
                                          text=True).stdout
                    self.assertIn("--version", page, name)
                    for option in set(re.findall(r"--\w[-\w]*", said)):
                        self.assertRegex(page, rf"(?<![-\w]){option}\b", name)

    def test_options_and_messages(self):
        """The analyser's options and messages are all in its page, README and completions."""
        page = text("man/nalveo16.1").replace(r"\-", "-")
        explained = set(re.findall(r'^\.BI --(\w+)= ', page, re.M))
        readme = set(re.findall(r"^\| `(\w+)` \| [-\d.none]+ \|", text("README.md"), re.M))
        self.assertEqual(explained, readme)
        self.assertEqual(explained, set(re.findall(r"--(\w+)(?=[\s'])",
                                                   text("completions/nalveo16"))))
        zsh = text("completions/_nalveo16").split("nalveo16-synth)")[0]
        self.assertEqual(explained, set(re.findall(r"--(\w+)=-\[", zsh)))
        # The analyser takes every one of them.
        for option in explained - {"indlist"}:
            value = "0.5" if option == "alpha" else "1"
            run = subprocess.run(["nalveo16", "none", "x", "y", f"--{option}={value}"], text=True,
                                 stdout=subprocess.PIPE, check=False)
            self.assertEqual((run.returncode, run.stdout), (0, "Error: could not open none.\n"))
        program = pathlib.Path(shutil.which("nalveo16")).read_bytes()
        messages = re.findall(rb"(?:Error|Warning): [^\n\0]+", program)
        self.assertGreater(len(messages), 8)
        plain = re.sub(r"^\.\w+ |[\"\\]", "", page, flags=re.M)
        for message in messages:
            pattern = re.sub(r"%[^\s]*?[a-z]", "@", message.decode())
            pattern = re.escape(pattern).replace("@", r"\s*[-+.\w]+\s*")
            self.assertRegex(plain, pattern, "nalveo16.1 lacks a message")


if __name__ == "__main__":
    unittest.main()
