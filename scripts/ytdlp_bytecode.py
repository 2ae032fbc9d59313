"""Adds compiled bytecode to a yt-dlp executable zip.

usage: python3 ytdlp_bytecode.py SOURCE DESTINATION

Without bytecode, Python compiles every module of the zip at each start, which costs the
engine about a second per run. zipimport prefers `name.pyc` beside `name.py`; the bytecode is
for the interpreter running this script, so run it with the interpreter that runs the zip.
The .pyc files are unchecked hash-based: the zip is only ever replaced whole, so its sources
never change under them, and a zip-local timestamp would depend on the time zone.

SOURCE is left untouched; DESTINATION gets the same prefix (shebang) and entries, any earlier
bytecode replaced by fresh. Exit status 2: SOURCE is not a zip with a prefix; 1: other failure.
"""
import importlib.util
import io
import sys
import zipfile
from importlib import _bootstrap_external


def add_bytecode(src, dst):
    with open(src, "rb") as f:
        raw = f.read()
    try:
        zin = zipfile.ZipFile(io.BytesIO(raw))
    except zipfile.BadZipFile:
        return 2
    infos = zin.infolist()
    if not infos:
        return 2
    prefix = raw[:min(i.header_offset for i in infos)]
    if not prefix.startswith(b"#!"):
        return 2

    out = io.BytesIO()
    with zin, zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as zout:
        for info in infos:
            if info.filename.endswith(".pyc"):
                continue
            data = zin.read(info)
            zout.writestr(info, data)
            if not info.filename.endswith(".py"):
                continue
            try:
                code = compile(data, info.filename, "exec", dont_inherit=True)
            except (SyntaxError, ValueError):
                continue  # zipimport falls back to the source
            pyc = _bootstrap_external._code_to_hash_pyc(
                code, importlib.util.source_hash(data), checked=False)
            cinfo = zipfile.ZipInfo(info.filename + "c", date_time=info.date_time)
            cinfo.compress_type = zipfile.ZIP_DEFLATED
            cinfo.external_attr = info.external_attr
            zout.writestr(cinfo, pyc)

    with open(dst, "wb") as f:
        f.write(prefix)
        f.write(out.getvalue())
    return 0


if __name__ == "__main__":
    sys.exit(add_bytecode(sys.argv[1], sys.argv[2]))
