#!/usr/bin/python3
"""Packs Debian's yt_dlp module into a self-updatable executable zip.

Debian's own yt-dlp refuses to update itself (its version.py names the variant "debian").
The same sources zipped with VARIANT and UPDATE_HINT cleared behave like the official
zip release, so `yt-dlp -U` on the installed copy replaces itself in place.
The zip also carries bytecode for the interpreter that `/usr/bin/env python3` finds, the one
that runs it, so the engine does not compile itself at every start.
"""
import io
import os
import re
import shutil
import subprocess
import sys
import zipfile

import yt_dlp

out = sys.argv[1]
src = os.path.dirname(yt_dlp.__file__)

buf = io.BytesIO()
with zipfile.ZipFile(buf, "w", zipfile.ZIP_DEFLATED) as z:
    for root, dirs, files in os.walk(src):
        dirs[:] = sorted(d for d in dirs if d != "__pycache__")
        for name in sorted(files):
            if not name.endswith(".py"):
                continue
            path = os.path.join(root, name)
            arc = os.path.join("yt_dlp", os.path.relpath(path, src))
            with open(path, encoding="utf-8") as f:
                text = f.read()
            if arc == os.path.join("yt_dlp", "version.py"):
                text = re.sub(r"^VARIANT = .*$", "VARIANT = None", text, flags=re.M)
                text = re.sub(r"^UPDATE_HINT = .*$", "UPDATE_HINT = None", text, flags=re.M)
            info = zipfile.ZipInfo(arc, date_time=(2000, 1, 1, 0, 0, 0))
            info.compress_type = zipfile.ZIP_DEFLATED
            z.writestr(info, text)
    main = "import yt_dlp\n\nif __name__ == '__main__':\n    yt_dlp.main()\n"
    info = zipfile.ZipInfo("__main__.py", date_time=(2000, 1, 1, 0, 0, 0))
    z.writestr(info, main)

src_tmp = out + ".src.tmp"
tmp = out + ".tmp"
with open(src_tmp, "wb") as f:
    f.write(b"#!/usr/bin/env python3\n")
    f.write(buf.getvalue())
try:
    runner = shutil.which("python3") or sys.executable
    bytecode = os.path.join(os.path.dirname(os.path.abspath(__file__)), "ytdlp_bytecode.py")
    subprocess.run([runner, "-I", bytecode, src_tmp, tmp], check=True)
finally:
    os.remove(src_tmp)
os.chmod(tmp, 0o755)
os.replace(tmp, out)
