"""Unit files, and the rules of a service's sandbox in the form that under_rules.py applies."""

import itertools
import re
import subprocess

# What a service may be told without keeping its tools from reading anything, and what this test bed does not
# apply: it concerns starting, processors and memory.
OF_NO_CONCERN = {
    "CPUQuota",
    "CPUWeight",
    "ExecStart",
    "IOWeight",
    "MemoryHigh",
    "MemoryMax",
    "OOMPolicy",
    "PrivateMounts",  # every run in this test bed has its own
    "SystemCallErrorNumber",
    "TasksMax",
    "TimeoutStartSec",
    "Type",
}


class UnitFile:
    """Sections, and in each the values of a key in their order. An empty value forgets those before it."""

    def __init__(self, path):
        self.path = path
        self.sections = {}
        section = None
        for line in path.read_text().replace("\\\n", "").splitlines():
            if header := re.fullmatch(r"\[(.*)\]", line):
                section = self.sections.setdefault(header[1], {})
            elif line and line[0] not in "#;":
                key, value = line.split("=", maxsplit=1)
                section[key] = section.get(key, []) + [value] if value else []

    def values(self, section, key):
        return self.sections[section].get(key, [])

    def words(self, section, key):
        return list(itertools.chain.from_iterable(value.split() for value in self.values(section, key)))

    def value(self, section, key):
        (value,) = self.values(section, key)
        return value


def system_calls(word):
    """The names behind a word of SystemCallFilter, as this machine's systemd knows them."""
    if not word.startswith("@"):
        return {word}
    argv = ["systemd-analyze", "syscall-filter", "--no-pager", word]
    text = subprocess.run(argv, check=True, capture_output=True, text=True).stdout
    words = [line.strip() for line in text.splitlines()[1:]]
    return set().union(*(system_calls(inner) for inner in words if inner and not inner.startswith("#")))


class Rules:
    """What under_rules.py is to do, gathered from a unit's [Service] section."""

    def __init__(self, unit):
        self.unit = unit
        self.calls = {
            "readOnly": [],
            "writable": [],
            "hidden": [],
            "capabilitiesDropped": [],
            "callsDenied": set(),
            "noNewPrivileges": False,
            "families": None,
            "restricted": [],
        }
        for key in unit.sections["Service"]:
            if key not in OF_NO_CONCERN:
                self._apply(key, unit.words("Service", key))

    def _apply(self, key, words):
        """A key that is not known here may hide something from a probe, and has to be looked at first."""
        apply = getattr(self, "_" + re.sub(r"(?<!^)(?=[A-Z])", "_", key).lower(), None)
        assert apply is not None, f"{self.unit.path.name}: does {key} hide nothing from the probes?"
        apply(words)

    def _switch(self, words):
        assert words == ["yes"], words

    def _no_new_privileges(self, words):
        self._switch(words)
        self.calls["noNewPrivileges"] = True

    def _protect_system(self, words):
        assert words == ["strict"]
        self.calls["readOnly"].append("/")

    def _protect_home(self, words):
        assert words == ["read-only"]  # as strict has made it already

    def _read_write_paths(self, words):
        self.calls["writable"] += words

    def _read_only_paths(self, words):
        self.calls["readOnly"] += words

    def _protect_control_groups(self, words):
        self._switch(words)
        self.calls["readOnly"].append("-/sys/fs/cgroup")

    def _protect_kernel_tunables(self, words):
        self._switch(words)
        self.calls["readOnly"] += ["/proc/sys", "-/proc/irq", "-/proc/fs", "-/proc/sysrq-trigger", "/sys"]
        self.calls["hidden"] += ["-/proc/kcore", "-/proc/kallsyms"]

    def _protect_kernel_modules(self, words):
        self._switch(words)
        self.calls["hidden"].append("-/usr/lib/modules")
        self.calls["capabilitiesDropped"].append("CAP_SYS_MODULE")
        self.calls["callsDenied"] |= system_calls("@module")

    def _protect_kernel_logs(self, words):
        self._switch(words)
        self.calls["hidden"] += ["-/proc/kmsg", "-/dev/kmsg"]
        self.calls["capabilitiesDropped"].append("CAP_SYSLOG")
        self.calls["callsDenied"].add("syslog")

    def _protect_hostname(self, words):
        self._switch(words)
        self.calls["callsDenied"] |= {"sethostname", "setdomainname"}

    def _restrict_address_families(self, words):
        assert not words[0].startswith("~")
        self.calls["families"] = words

    def _capability_bounding_set(self, words):
        assert all(value.startswith("~") for value in self.unit.values("Service", "CapabilityBoundingSet"))
        self.calls["capabilitiesDropped"] += [word.removeprefix("~") for word in words]

    def _system_call_filter(self, words):
        assert words[0].startswith("~") and self.unit.value("Service", "SystemCallErrorNumber") == "EPERM"
        for word in words:
            self.calls["callsDenied"] |= system_calls(word.removeprefix("~"))

    def _restricted(self, what, words):
        self._switch(words)
        self.calls["restricted"].append(what)

    def _lock_personality(self, words):
        self._restricted("personality", words)

    def _restrict_namespaces(self, words):
        self._restricted("namespaces", words)

    def _restrict_realtime(self, words):
        self._restricted("realtime", words)

    def _restrict_s_u_i_d_s_g_i_d(self, words):
        self._restricted("suid", words)

    def as_json(self):
        return self.calls | {"callsDenied": sorted(self.calls["callsDenied"])}
