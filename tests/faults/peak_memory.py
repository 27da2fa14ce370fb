"""FILE PROGRAM [ARGUMENT...]: runs a program and writes the most memory that it had at one time, in KiB."""

import pathlib
import resource
import subprocess
import sys

ended = subprocess.run(sys.argv[2:], check=False)
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
pathlib.Path(sys.argv[1]).write_text(str(peak))
sys.exit(ended.returncode)
