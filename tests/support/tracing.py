"""What the tests share that let system calls fail."""

import os
import shutil
import subprocess


def can_trace():
    """Returns whether strace is there and may trace."""
    return shutil.which("strace") is not None and subprocess.run(
        ["strace", "-o", os.devnull, "true"], capture_output=True, check=False).returncode == 0
