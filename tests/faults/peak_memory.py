"""Inside a sandbox: runs a program, writes its peak memory in KiB to a file, and ends with its exit status."""

import pathlib
import resource
import subprocess
import sys

result = subprocess.run(sys.argv[1:], check=False)
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
pathlib.Path("/shared/output/peak-memory").write_text(f"{peak}\n")
sys.exit(result.returncode)
