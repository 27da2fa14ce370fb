"""The faults that are tried, one row each: what goes wrong, and why a row has no case where it has none."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Row:
    fault: str
    # Why no case can be made for it; a row without this must have one.
    no_case: str = ""
    # What of a row with cases has none, and why.
    left_out: str = ""


GROUPS = {
    "A": "Connections and trust",
    "B": "Replies on the wire",
    "C": "Texts of replies",
    "D": "Identities and tokens",
    "E": "Files and locks",
    "F": "The process and its surroundings",
    "G": "External commands",
    "H": "Hostile input of the host",
    "S": "The master server under attack",
    "V": "Memory and descriptors",
}

ROWS = {
    "A1": Row("port refused; reset after accept; host unreachable; DNS name unknown"),
    "A2": Row("SYN dropped; accept queue full"),
    "A3": Row("DNS servers dead"),
    "A4": Row("silence in the handshake; a server that never reads a large request"),
    "A5": Row("garbage or plain HTTP instead of TLS; a flood of alerts"),
    "A6": Row("TLS 1.0 and 1.1 only; weak cipher; 1024-bit key"),
    "A7": Row(
        "server certificate expired, not yet valid, self-signed, of a foreign or no authority, for clients"
    ),
    "A8": Row("a foreign authority that sits in the system's own directory"),
    "A9": Row(
        "server certificate for another name, without the address, by common name, wildcard, NUL in a name"
    ),
    "A10": Row(
        "server certificate revoked",
        no_case="the client has no revocation lists; authorities are per identity and can be replaced",
    ),
    "A11": Row(
        "own certificate missing, expired, of another key, unreadable, of wrong use, unknown to the server"
    ),
    "A12": Row("a server that wants no client certificate, or names 200 acceptable authorities"),
    "B1": Row("silence before the headers; headers byte by byte"),
    "B2": Row("silence in the body; body byte by byte; one-byte chunks for ever"),
    "B3": Row("truncated body; Content-Length too big, too small, negative, twice"),
    "B4": Row("body ended by closing TCP, without a length"),
    "B5": Row("bad chunk size; endless chunks; body over the limit; body without end"),
    "B6": Row("flood of 100 Continue and 103 Early Hints"),
    "B7": Row("flood of headers, one endless header, NUL in a header, HTTP/0.9, bad status line"),
    "B8": Row("gzip over the limit, gzip in gzip, gzip as transfer encoding"),
    "B9": Row("redirects to another host, port, http, file and itself"),
    "B10": Row("204 and 304 where a body is needed; 204 with a body; wrong content type"),
    "B11": Row("error statuses with empty, JSON, HTML and 1 MB bodies"),
    "B12": Row("Retry-After absent, 0, huge, negative, a date, garbage"),
    "B13": Row("error body with ESC, CR LF, direction marks, a line of 1 MB"),
    "B14": Row("reset after the request was stored"),
    "B15": Row("one of five servers slow; all five dead"),
    "C1": Row(
        "replies that are no host or no list: empty, null, array, text, two documents, byte order mark"
    ),
    "C2": Row("missing, mistyped, doubled, unknown fields; huge numbers"),
    "C3": Row("nesting beyond the parser's depth"),
    "C4": Row("text that is not UTF-8, lone surrogates, NUL, a string of 10 MB"),
    "D1": Row("invitation wrong, used, expired, for another host, used ten times at once"),
    "D2": Row("certificate request with wrong subject, extra names, CA flag, weak key, bad signature"),
    "D3": Row("401 once, 401 always, 403, token service down"),
    "D4": Row("killed at every system call of an enrolment, of a certificate's renewal and of a token's"),
    "D5": Row("a certificate on another host's path; revoked host; deleted host"),
    "D6": Row("token asked for with a revoked certificate; server data restored from an older copy"),
    "D7": Row("two identities towards two servers in one run"),
    "D8": Row("secrets in log, output, arguments, environment, cache, status or temporary files"),
    "E1": Row("disk full at each write, mkdir and rename; out of inodes; quota used up; /dev/full"),
    "E2": Row(
        "EIO at write, fsync, close, read and rename; six errors at twenty system calls",
        left_out="an ext4 on a disk that fails: it takes a loop device and a mount of the machine itself, "
        "outside any sandbox; the same errors come from a tracer, at every call that may have them",
    ),
    "E3": Row("read-only file system; state folder missing, a file, of another owner, open to all"),
    "E4": Row("log folder missing, unwritable, full, log rotated away meanwhile"),
    "E5": Row(
        "cache, status and token file empty, cut, binary, 1 GB, of another version, a folder, a dangling link"
    ),
    "E6": Row("killed at every system call of enrolment, first, unchanged and forced update"),
    "E7": Row("lock held by a live, stopped, dead or killed process; 50 starts at once"),
    "E8": Row("a grandchild in the background outlives the command"),
    "E9": Row("an ordinary user locks, reads or writes the state files"),
    "E10": Row("symbolic link, hard link, fifo or device in the place of lock, log, cache or temporary file"),
    "E11": Row("lock file deleted or replaced while it is held"),
    "F1": Row("an allocation fails, once and from then on, also against a server that is not trusted"),
    "F2": Row(
        "limits on memory, processes, descriptors and file size; a control group's limit on processes",
        left_out="a control group's limit on memory: it kills a process that touches one page more, as E6 "
        "and F7 do at every call and 1,000 times at random, and may kill a tool, as G5 has it",
    ),
    "F3": Row("standard streams closed; output to a closed pipe or a full disk"),
    "F4": Row("SIGCHLD ignored, all signals blocked, mask 000 and 777, nice 19"),
    "F5": Row("SIGTERM, SIGHUP, SIGINT and SIGPIPE at every system call"),
    "F6": Row("clock years off, at 1970, 2038 and 2106, jumping; broken time zone"),
    "F7": Row("10,000 runs; 200 at once; 1,000 kills at random"),
    "G1": Row("each external tool missing, not executable, of another machine, a script without #!"),
    "G2": Row("a tool hangs, ignores SIGTERM, is stopped"),
    "G3": Row("a tool prints 2 GB"),
    "G4": Row("a tool prints nothing, NULs, binary, not UTF-8, a line of 10 MB, no last line end"),
    "G5": Row("a tool fails with output; succeeds with the text of an error"),
    "G6": Row("a tool leaves a child in the background"),
    "G7": Row("what a tool gets: environment, descriptors, mask, signals"),
    "G8": Row("decoys of the tools' names in PATH, current folder and /tmp"),
    "H1": Row("LD_*, IFS, exported functions, ENV, PATH, TMPDIR, LC_*, GLIBC_TUNABLES set"),
    "H2": Row("proxies, SSLKEYLOGFILE, OPENSSL_CONF, RES_OPTIONS, HOSTALIASES, CURL_CA_BUNDLE set"),
    "H3": Row("configuration: 1 GB, no line end, NUL, CR LF, BOM, keys twice and unknown, ../, other owner"),
    "H4": Row("release file with commands in it, pack summary empty or huge, odd names of kernel and host"),
    "H5": Row("hostile names of mounts, disks, interfaces, users and processes"),
    "H6": Row("names from a server used in files, in replies, in enrolments and in certificates"),
    "H7": Row("forged log entries through every field"),
    "H8": Row("/proc or /sys absent, empty, hidden, unreadable"),
    "S1": Row("200 idle and slow clients"),
    "S2": Row("oversized and malformed requests"),
    "S3": Row("wrong, foreign and revoked certificates"),
    "S4": Row("path tricks; SQL text in names"),
    "S5": Row("killed during writes; two enrolments for one invitation"),
    "S6": Row("full disk under the store"),
    "V1": Row("invalid reads and writes, values never set, lost blocks and open descriptors, by valgrind"),
}
