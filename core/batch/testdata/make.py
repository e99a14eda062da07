#!/usr/bin/env python3
"""Makes the spreadsheets that the round-trip tests read, as Python's csv module writes them.

Each file is named after its form: delimiter-encoding-ending-final|open.extension. changed/ holds
the same file with one cell changed, and rows.json the rows that each file must read as.
Run it from anywhere; it rewrites the files in its own folder.
"""
import csv
import io
import json
import pathlib

HERE = pathlib.Path(__file__).resolve().parent

DELIMITERS = {"comma": ",", "semicolon": ";", "tab": "\t"}
ENDINGS = {"lf": "\n", "crlf": "\r\n", "cr": "\r"}
ENCODINGS = {
    "utf8": lambda text: text.encode("utf-8"),
    "utf8bom": lambda text: text.encode("utf-8-sig"),
    "utf16le": lambda text: b"\xff\xfe" + text.encode("utf-16-le"),
    "utf16be": lambda text: b"\xfe\xff" + text.encode("utf-16-be"),
    "windows1252": lambda text: text.encode("cp1252"),
}

# Every dialect with every encoding once; line endings, the final line ending and the
# file's extension (which picks the delimiter rule) vary across them.
CASES = [
    ("comma", "utf8", "lf", True, "csv"),
    ("comma", "utf8bom", "crlf", True, "csv"),
    ("comma", "utf16le", "crlf", True, "csv"),
    ("comma", "utf16be", "lf", False, "csv"),
    ("comma", "windows1252", "cr", True, "csv"),
    ("semicolon", "utf8", "crlf", False, "csv"),
    ("semicolon", "utf8bom", "lf", True, "csv"),
    ("semicolon", "utf16le", "cr", False, "txt"),
    ("semicolon", "utf16be", "crlf", True, "csv"),
    ("semicolon", "windows1252", "crlf", False, "csv"),
    ("tab", "utf8", "cr", True, "tsv"),
    ("tab", "utf8bom", "crlf", False, "txt"),
    ("tab", "utf16le", "lf", True, "tsv"),
    ("tab", "utf16be", "cr", True, "tab"),
    ("tab", "windows1252", "lf", False, "TSV"),
]

CHANGED_ROW, CHANGED_COLUMN, CHANGED_VALUE = 2, 2, "Zoë’s new words"


def rows(line_break):
    # A line break inside a cell is the file's own: the csv module quotes only those.
    return [
        ["title", "file", "description", "visibility"],
        ["Morning walk", "walk.mp4", 'She said "hello", then left; bye\tnow', "public"],
        ["Café – über", "café.mov", f"Line one{line_break}Line two", "unlisted"],
        ["Short", "short.mp4"],
        ["", "untitled.mp4", "", "public"],
        ['"Quoted" start', "q.mp4", 'ends with a quote"', "public"],
        ["Price €5 — “smart”", "euro.mp4", "a,b;c", "public"],
    ]


def written(table, delimiter, ending, final, encoding):
    out = io.StringIO(newline="")
    csv.writer(out, delimiter=DELIMITERS[delimiter], lineterminator=ENDINGS[ending]).writerows(table)
    text = out.getvalue()
    if not final:
        text = text[: -len(ENDINGS[ending])]
    return ENCODINGS[encoding](text)


def main():
    (HERE / "changed").mkdir(exist_ok=True)
    expected = {}
    for delimiter, encoding, ending, final, extension in CASES:
        name = f"{delimiter}-{encoding}-{ending}-{'final' if final else 'open'}.{extension}"
        table = rows("\r" if ending == "cr" else "\n")
        (HERE / name).write_bytes(written(table, delimiter, ending, final, encoding))
        expected[name] = table
        changed = [list(row) for row in table]
        changed[CHANGED_ROW][CHANGED_COLUMN] = CHANGED_VALUE
        (HERE / "changed" / name).write_bytes(written(changed, delimiter, ending, final, encoding))
    (HERE / "rows.json").write_text(json.dumps(expected, ensure_ascii=False, indent=1, sort_keys=True) + "\n",
                                    encoding="utf-8")


if __name__ == "__main__":
    main()
