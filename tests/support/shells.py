"""Interactive shells on a terminal of their own, asked to complete what is typed."""

import contextlib
import os
import pathlib
import pty
import select
import subprocess
import time

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
COMPLETIONS = TOP / "packaging" / "completion"

COMPLETE = b"\t"
# No key here means anything to a terminal whose shell is not reading yet.
INSERT_ALL = b"\x18a"
SHOW_LINE = b"\x18s"
CLEAR_LINE = b"\x15"

WAIT_SECONDS = 60

# INSERT_ALL puts every completion on the line, SHOW_LINE writes the line to $SHOWN.
BASH_SETUP = """
show_line() { printf '%s\\n' "$READLINE_LINE" >"$SHOWN"; }
bind '"\\C-xa": insert-completions'
bind -x '"\\C-xs": show_line'
for completion in "$COMPLETIONS"/bash/*; do source "$completion"; done
echo ready >"$SHOWN"
"""
ZSH_SETUP = """
fpath=("$COMPLETIONS/zsh" $fpath)
autoload -Uz compinit && compinit -u -D
zstyle ':completion:all-matches:*' completer _all_matches _complete
zstyle ':completion:all-matches:*' insert true
zle -C all-matches complete-word _generic
bindkey '^Xa' all-matches
show_line() { print -r -- "$BUFFER" >"$SHOWN" }
zle -N show_line
bindkey '^Xs' show_line
bindkey '^U' kill-whole-line
echo ready >"$SHOWN"
"""
SHELLS = {
    "bash": (["bash", "--noprofile", "--norc", "-i"], BASH_SETUP),
    "zsh": (["zsh", "-f", "-i"], ZSH_SETUP),
}


class ShellError(Exception):
    """A shell did not do what it was asked."""


class InteractiveShell:
    """One shell with the completions loaded. Use as a context manager. `wrapper` is what it runs under."""

    def __init__(self, name, folder, wrapper=(), inside=None):
        argv, setup = SHELLS[name]
        self.shown = folder / "shown"
        inside = pathlib.Path(inside or folder)
        (folder / "setup").write_text(setup)
        environment = {
            "PATH": "/usr/bin:/bin",
            "HOME": str(inside),
            "TERM": "dumb",
            "LC_ALL": "C.UTF-8",
            "INPUTRC": "/dev/null",
            "SHOWN": str(inside / "shown"),
            "COMPLETIONS": str(COMPLETIONS),
        }
        self._terminal, shells_end = pty.openpty()
        self._heard = b""
        self._process = subprocess.Popen(
            [*wrapper, *argv], stdin=shells_end, stdout=shells_end, stderr=shells_end, env=environment,
            start_new_session=True,
        )  # fmt: skip
        os.close(shells_end)
        try:
            self._type(f"source {inside}/setup\n".encode())
            self._await_shown()
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_exception):
        self.close()

    def close(self):
        self._process.kill()
        self._process.wait()
        os.close(self._terminal)

    def _type(self, keys):
        self.shown.unlink(missing_ok=True)
        os.write(self._terminal, keys)

    def _await_shown(self):
        """What the shell wrote, while its terminal is kept empty."""
        deadline = time.monotonic() + WAIT_SECONDS
        while time.monotonic() < deadline and self._process.poll() is None:
            if select.select([self._terminal], [], [], 0.01)[0]:
                with contextlib.suppress(OSError):
                    self._heard += os.read(self._terminal, 65536)
            if self.shown.exists() and (text := self.shown.read_text()).endswith("\n"):
                return text[:-1]
        raise ShellError(f"the shell said nothing; on its terminal stands {self._heard[-2000:]!r}")

    def _line_after(self, line, key):
        self._type(CLEAR_LINE + line.encode() + key + SHOW_LINE)
        return self._await_shown()

    def complete(self, line):
        """The line after the completion key."""
        return self._line_after(line, COMPLETE)

    def completions(self, line):
        """Everything that the last word of a line may become, in order."""
        after = self._line_after(line, INSERT_ALL)
        if after == line:
            return []
        return sorted(after.split()[len(line.split(" ")) - 1 :])
