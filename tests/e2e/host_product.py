"""The host product under one install root, asked without the tool.

What the tool must export is worked out here a second time, from what the product's commands print
and as plainly as it goes: the tests compare the two.
"""

import collections
import functools
import json
import pathlib
import subprocess

Image = collections.namedtuple("Image", "backup_id client time files size schedule policy")
Set = collections.namedtuple("Set", "time size image_ids backup_id")  # of its parent, if it has one

SECOND_COLUMN_WIDTH = 20
UNITS = {"K": 2**10, "M": 2**20, "G": 2**30, "T": 2**40, "P": 2**50}
ENTRY_KEYS = ("filenum length plength dlength blknum in_image raw_partition_sz gigabytes device_num"
              " path data").split()


def text(data):
    """Bytes as text, without loss: what is no UTF-8 comes out the same in both of two texts."""
    return data.decode("utf-8", "surrogateescape")


def members(document):
    """A JSON object as its (key, value) pairs in order, so that a key that comes twice is seen.

    Every scalar is the text that it was printed as, and what has no members is an empty text: that
    is all a document of the tool can say of them.
    """

    def normal(value):
        if value is None or value is True or value is False:
            return json.dumps(value)
        if isinstance(value, list):
            return [normal(item) for item in value] or ""
        if isinstance(value, tuple):
            return tuple((key, normal(item)) for key, item in value) or ""
        return value

    return normal(json.loads(document, object_pairs_hook=tuple, parse_int=str, parse_float=str))


def make_catalogue(generator, root, **options):
    """Has the stand-in make a catalogue under `root`, in place of the one before."""
    arguments = []
    for option, value in options.items():
        name = "--" + option.replace("_", "-")
        arguments += [name] if value is True else [name, str(value)]
    subprocess.run([generator, "--root", root, *arguments], check=True,
                   stdout=subprocess.DEVNULL)


class HostProduct:
    """The three commands of the product installed under `root`, whose catalogue stays as it is."""

    def __init__(self, root):
        self.root = pathlib.Path(root)

    def _run(self, command, *arguments):
        return subprocess.run([self.root / "bin" / command, *arguments], check=True,
                              stdout=subprocess.PIPE).stdout

    def listing(self, client=None, policy=None, schedule=None):
        """The listing as it is printed."""
        arguments = []
        for option, value in (("-client", client), ("-policy", policy), ("-sched", schedule)):
            if value is not None:
                arguments += [option, value]
        return self._run("admincmd/qvroll", *arguments)

    def images(self, client=None, policy=None):
        """The rows of the listing, in its order."""
        _, _, blocks = ("\n" + text(self.listing(client, policy))).partition("\n\n")
        rows = []
        for block in blocks.split("\n\n"):
            _, *block_rows = block.strip("\n").split("\n")  # behind the header
            rows += block_rows
        return [self._image(row) for row in rows]

    @staticmethod
    def _image(row):
        backup_id, rest = row.split(" ", 1)
        fields = [field for field in rest.lstrip(" ")[SECOND_COLUMN_WIDTH:].split(" ") if field]
        files, size, schedule, policy = fields[:4]
        client, time = backup_id.split("_", 1)
        return Image(backup_id, client, int(time) if time.isdigit() else 0, int(files), size,
                     schedule, policy)

    def sets(self, client=None, policy=None):
        """The backup sets, series by series as the tool delivers them."""
        series = collections.defaultdict(list)
        for image in self.images(client, policy):
            series[f"{image.client}:{image.policy}:{image.schedule}"].append(image)
        return [one for tag in sorted(series, key=lambda tag: tag.encode("utf-8", "surrogateescape"))
                for one in self._sets_of(series[tag])]

    @staticmethod
    def _sets_of(series):
        def size(images):
            return sum(int(float(image.size[:-1]) * UNITS[image.size[-1]]) for image in images)

        if all(image.files != 0 for image in series):
            return [Set(image.time, size(series), [image.backup_id], image.backup_id)
                    for image in series]
        sets, open_images = [], []
        for image in series:
            if image.files != 0:
                open_images.append(image)
                continue
            if open_images:
                sets.append(Set(image.time, size(open_images),
                                [member.backup_id for member in open_images], image.backup_id))
            open_images = []
        return sets

    @functools.cache
    def metadata(self, backup_id):
        """The members of what the product says of one image."""
        return members(text(self.metadata_json(backup_id)))

    def metadata_json(self, backup_id):
        """The JSON document of one image: the product prints a percent sign as two."""
        return self._run("admincmd/qvmeta", "-json", "-backupid", backup_id).replace(b"%%", b"%")

    def entry_lines(self, backup_id):
        """The lines of one image's file entries, without the column header."""
        output = self._run("rec_unfold", "-dump", self.catalogue_file(backup_id))
        lines = [line for line in output.split(b"\n") if line and not line.startswith(b"0")]
        if lines and lines[0].startswith(b"num\t"):
            del lines[0]
        return lines

    def catalogue_file(self, backup_id):
        """The path of the file with one image's file entries."""
        client, time = backup_id.split("_", 1)
        last_line = text(self._run("admincmd/qvroll", "-id", backup_id)).split("\n")[2]
        # Put together as it is, whatever the client's name looks like.
        return pathlib.Path(f"{self.root}/db/images/{client}/{time[:4]}000000/"
                            + last_line.split(" ")[-1])

    @functools.cache
    def entries(self, backup_id):
        """The file entries of one image as they have to stand in its document."""
        return [tuple(zip(ENTRY_KEYS, text(line).split("\t"), strict=True))
                for line in self.entry_lines(backup_id)] or ""
