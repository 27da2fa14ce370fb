"""Which folder may include which: every #include line of the tree is held against the arrows below."""

import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parent.parent.parent

# Part of the system -> the parts that it may include besides itself. hostdb holds two parts: the JSON
# converter lies under the host record, the client and its cache lie above it. A part reaches only what stands
# here, and everything that stands here is reached.
ARROWS = {
    "cmd": {"client", "hostinfo", "platform"},
    "client": {"hostinfo", "json", "fileutils", "platform"},
    "hostinfo": {"json", "utils", "sysinfo", "clusterinfo", "platform"},
    "json": {"platform"},
    "utils": {"platform"},
    "sysinfo": {"platform"},
    "clusterinfo": {"platform"},
    "fileutils": {"platform"},
    "masterd": {"platform"},
    "enroll": {"platform"},
    "platform": set(),
}
FOLDERS = {part for part in ARROWS if part not in ("client", "json")} | {"hostdb"}
NOT_OF_THE_SYSTEM = {"build", "tests", "bench", "fuzz", "packaging", "docs", "scripts", "cmake"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?P<quote>["<])(?P<name>[^">]+)[">]', re.M)


def part_of(path):
    """The part that a file belongs to; None for a file outside the system's folders."""
    folder = path.parts[0]
    if folder == "hostdb":
        return "json" if path.name.startswith("tqclntdb_json") else "client"
    return folder if folder in FOLDERS else None


def sources(top):
    for file in sorted(top.rglob("*")):
        path = file.relative_to(top)
        if file.suffix in (".h", ".cpp") and path.parts[0] not in NOT_OF_THE_SYSTEM:
            yield path


def include_fault(top, path, quote, name):
    """Why a file may not include this, or None."""
    target = pathlib.PurePosixPath(name)
    own = (top / name).is_file() and len(target.parts) > 1
    if quote == "<":
        return "a header of this tree stands in angle brackets" if own and part_of(target) else None
    if not own:
        return "not a path from the top of the tree"
    part, wanted = part_of(path), part_of(target)
    if wanted == part or wanted in ARROWS[part]:
        return None
    return f"no arrow from {part} to {wanted}"


def faults(top):
    found = []
    for path in sources(top):
        if part_of(path) is None:
            found.append(f"{path}: lies in a folder that the arrows do not name")
            continue
        for match in INCLUDE.finditer((top / path).read_text()):
            fault = include_fault(top, path, match["quote"], match["name"])
            if fault:
                found.append(f"{path}: {match['name']}: {fault}")
    return found


def unused_arrows(top):
    unused = {(part, reached) for part, parts in ARROWS.items() for reached in parts}
    for path in sources(top):
        for match in INCLUDE.finditer((top / path).read_text()):
            unused.discard((part_of(path), part_of(pathlib.PurePosixPath(match["name"]))))
    return unused


def headers_reached(top, path, seen):
    """Every header of the tree that a file includes, directly or not."""
    for match in INCLUDE.finditer((top / path).read_text()):
        name = pathlib.Path(match["name"])
        if match["quote"] == '"' and (top / name).is_file() and name not in seen:
            seen.add(name)
            headers_reached(top, name, seen)
    return seen


def plant(top, files):
    for name, text in files.items():
        (top / name).parent.mkdir(parents=True, exist_ok=True)
        (top / name).write_text(text)


def test_every_include_of_the_tree_follows_an_arrow():
    assert faults(TOP) == []


def test_every_arrow_is_used():
    assert unused_arrows(TOP) == set()


def test_no_header_includes_itself_by_way_of_others():
    headers = [path for path in sources(TOP) if path.suffix == ".h"]
    assert [path for path in headers if path in headers_reached(TOP, path, set())] == []


def test_the_tree_is_really_read():
    read = {part_of(path) for path in sources(TOP)}
    assert read >= {"platform", "json", "hostinfo"}


def test_an_arrow_that_runs_back_is_found(tmp_path):
    plant(tmp_path, {"platform/a.cpp": '#include "hostinfo/b.h"\n', "hostinfo/b.h": ""})
    assert faults(tmp_path) == ["platform/a.cpp: hostinfo/b.h: no arrow from platform to hostinfo"]


def test_the_host_record_may_use_the_converter_but_not_the_client(tmp_path):
    plant(
        tmp_path,
        {
            "hostinfo/a.cpp": '#include "hostdb/tqclntdb_json.h"\n'
            '  #  include "hostdb/tqclntdb_svchandler.h"\n',
            "hostdb/tqclntdb_json.h": "",
            "hostdb/tqclntdb_svchandler.h": "",
        },
    )
    fault = "hostinfo/a.cpp: hostdb/tqclntdb_svchandler.h: no arrow from hostinfo to client"
    assert faults(tmp_path) == [fault]


def test_the_server_never_sees_the_host_record(tmp_path):
    plant(tmp_path, {"masterd/a.cpp": '#include "hostinfo/b.h"\n', "hostinfo/b.h": ""})
    assert faults(tmp_path) == ["masterd/a.cpp: hostinfo/b.h: no arrow from masterd to hostinfo"]


def test_a_folder_that_the_arrows_do_not_name_is_found(tmp_path):
    plant(tmp_path, {"misc/a.cpp": ""})
    assert faults(tmp_path) == ["misc/a.cpp: lies in a folder that the arrows do not name"]


def test_a_header_beside_its_source_is_named_from_the_top(tmp_path):
    plant(tmp_path, {"utils/a.cpp": '#include "a.h"\n', "utils/a.h": ""})
    assert faults(tmp_path) == ["utils/a.cpp: a.h: not a path from the top of the tree"]


def test_an_own_header_in_angle_brackets_is_found(tmp_path):
    plant(tmp_path, {"cmd/a.cpp": "#include <platform/a.h>\n", "platform/a.h": ""})
    assert faults(tmp_path) == ["cmd/a.cpp: platform/a.h: a header of this tree stands in angle brackets"]


def test_a_circle_of_headers_is_found(tmp_path):
    plant(tmp_path, {"utils/a.h": '#include "utils/b.h"\n', "utils/b.h": '#include "utils/a.h"\n'})
    assert pathlib.Path("utils/a.h") in headers_reached(tmp_path, pathlib.Path("utils/a.h"), set())
