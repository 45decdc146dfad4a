"""One HTML page of an archive that quillmere-archive keeps."""

VERSION = "1.0.0"
