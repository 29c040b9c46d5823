"""From the command line to files: what is drawn, where it goes, what the user is told."""

import contextlib
import os
import shutil
import sys

from matplotlib.figure import Figure

from . import frame, overview
from .options import ending_of, is_folder, parse
from .recording import (Tracks, Wrong, analyse, escape, read_recording, resynthesis, tell)

METHODS = ("harmonics, interpolated", "harmonics, discrete cepstrum",
           "quasi-harmonics, discrete cepstrum", "complementary windows", "SEEVOC")

# No date and no version in the file: the same input gives the same picture.
METADATA = {".png": {"Software": None},
            ".pdf": {"Creator": None, "Producer": None, "CreationDate": None},
            ".svg": {"Creator": None, "Date": None}}


class Drawing:
    """All that pictures of one recording need."""

    def __init__(self, args, wave):
        self.args = args
        self.samples = read_recording(wave)
        if args.lf0 or args.mcc or args.mvf:
            self.tracks = Tracks(args, wave, len(self.samples), args.lf0, args.mcc, args.mvf)
        else:
            self.tracks = analyse(args, wave, self.samples)
        self.again = resynthesis(self.tracks) if args.resynth else None
        if args.compare:
            self.envelopes = [(f"{number}: {name}", analyse(args, wave, self.samples, number), 0)
                              for number, name in enumerate(METHODS)]
        else:
            names = ["envelope"] if len(args.mcc) < 2 else self.tracks.names["mcc"]
            self.envelopes = [(name, self.tracks, index)
                              for index, name in zip(range(len(self.tracks.cc)), names)]

    def pages(self, new_figure, dpi):
        """Yields (figure, number of the page, number of pages)."""
        if self.args.frame is None:
            yield from overview.pages(new_figure, self.args, self.samples, self.tracks, dpi,
                                      self.again)
        else:
            figure = new_figure(self.args.size or (10, 5.5))
            frame.draw(figure, self.args, self.samples, self.tracks, self.envelopes,
                       self.again)
            yield figure, 1, 1


class CorpusDrawing:
    """The same for the table of a corpus."""

    def __init__(self, args, path):
        self.args, self.path = args, path

    def pages(self, new_figure, _):
        """Yields (figure, number of the page, number of pages)."""
        from . import corpus
        figure = new_figure(self.args.size or (10, 8))
        corpus.draw(figure, self.args, self.path)
        yield figure, 1, 1


@contextlib.contextmanager
def whole(path):
    """A name to write to; the file gets its own name when it is complete. A link stays one."""
    target = os.path.realpath(path)
    folder, name = os.path.split(target)
    stem, ending = os.path.splitext(name)
    unfinished = os.path.join(folder, f".{stem}.{os.getpid()}{ending}")
    try:
        yield unfinished
        if os.path.exists(target):
            shutil.copymode(target, unfinished)
        os.replace(unfinished, target)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.remove(unfinished)


def new_figure(size):
    return Figure(figsize=size)


def save(drawing, path, claim):
    """Pictures of a recording: one file, or one for each page, numbered; claim(name) for each."""
    ending = ending_of(path)
    if ending == ".html":
        from . import page
        with whole(path) as unfinished:
            page.write(unfinished, drawing.args, drawing.samples, drawing.tracks,
                       drawing.again)
        return
    dpi = drawing.args.dpi or (100 if ending == ".png" else 300)
    names = [path]
    for figure, number, npages in drawing.pages(new_figure, dpi):
        if npages > 1 and number == 1:
            names = [f"{path[:-len(ending)]}-{page + 1:0{len(str(npages))}}{ending}"
                     for page in range(npages)]
            for name in names:
                claim(name)
        with whole(names[number - 1]) as unfinished:
            figure.savefig(unfinished, dpi=dpi, metadata=METADATA[ending])
    if len(names) > 1:
        tell(f"Note: the pages are {escape(names[0])} to {escape(names[-1])}; a .pdf holds all.")


def show(drawing):
    """Opens a window for each page, and waits until they are closed."""
    from matplotlib import pyplot
    pyplot.switch_backend(pyplot.rcParams["backend"])
    if pyplot.get_backend().lower() in ("agg", "pdf", "svg", "ps", "cairo", "template"):
        raise Wrong("--show finds no display, or no toolkit to open a window with (Debian: "
                    "python3-tk).")
    for _ in drawing.pages(lambda size: pyplot.figure(figsize=size, dpi=drawing.args.dpi or 100),
                           drawing.args.dpi or 100):
        pass
    pyplot.show()


class Claims:
    """Which recording each file is of: no two share one, and none takes the place of an input."""

    def __init__(self, args):
        inputs = [*args.wave, *args.lf0, *args.mcc, *args.mvf, *filter(None, [args.corpus])]
        self._inputs = {os.path.realpath(path) for path in inputs}
        self._owners = {}

    def claim(self, path, owner):
        """Has a file for a recording, or for all; refuses what could not be written."""
        target = os.path.realpath(path)
        folder = os.path.dirname(target)
        if target in self._inputs:
            raise Wrong(f"{path} is what is to be drawn; name another file for the picture.")
        if self._owners.setdefault(target, owner) != owner:
            raise Wrong(f"{self._owners[target]} and {owner} would both be drawn in {path}.")
        if not os.path.isdir(folder):
            raise Wrong(f"could not create {path}: there is no folder {os.path.dirname(path)}.")
        if not os.access(target if os.path.exists(target) else folder, os.W_OK):
            raise Wrong(f"could not create {path}: no permission to write there.")


def targets(args, claims):
    """For each recording, the files that its pictures go to."""
    waves = [args.corpus] if args.corpus else args.wave
    plan = []
    for wave in waves:
        mine = []
        for output in args.output:
            path, owner = output, wave
            if is_folder(output):
                stem = os.path.splitext(os.path.basename(wave))[0]
                path = os.path.join(output, f"{stem}.{args.format}")
            elif len(waves) > 1:
                owner = "all recordings"
            claims.claim(path, owner)
            mine.append(path)
        plan.append((wave, mine))
    return plan


def run(args, stack):
    """Draws all recordings; returns the exit status."""
    status = 0
    books = {}
    claims = Claims(args)
    for wave, paths in targets(args, claims):
        try:
            drawing = CorpusDrawing(args, wave) if args.corpus else Drawing(args, wave)
            for path in paths:
                if ending_of(path) == ".pdf":
                    # Opened by the first recording that can be drawn; holds the pages of all.
                    for figure, _, _ in drawing.pages(new_figure, args.dpi or 300):
                        if path not in books:
                            from matplotlib.backends.backend_pdf import PdfPages
                            unfinished = stack.enter_context(whole(path))
                            books[path] = stack.enter_context(
                                PdfPages(unfinished, metadata=METADATA[".pdf"]))
                        books[path].savefig(figure, dpi=args.dpi or 300)
                else:
                    save(drawing, path, lambda name, wave=wave: claims.claim(name, wave))
            if args.show:
                show(drawing)
        except (Wrong, OSError, ValueError) as error:
            tell(f"Error: {escape(str(error))}")
            status = 1
    return status


def main(argv=None):
    args = parse(argv)
    try:
        with contextlib.ExitStack() as stack:
            status = run(args, stack)
    except (Wrong, OSError) as error:
        tell(f"Error: {escape(str(error))}")
        status = 1
    sys.exit(status)
