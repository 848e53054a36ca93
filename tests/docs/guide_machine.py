"""Two hosts inside a sandbox, a controller and a client that sees the same disks: runs a guide's commands there."""
import json
import os
import pathlib
import re
import select
import shutil
import subprocess
import time

PRODUCT = pathlib.Path("/usr/Corvane")
SECONDS_A_COMMAND = 60
END = "\x01end of command"


class Host:
    """A shell that keeps its folder, variables and jobs from command to command."""

    def __init__(self, *wrapper):
        environment = {"PATH": f"{PRODUCT}/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                       "HOME": "/", "LC_ALL": "C.UTF-8", "TZ": "UTC", "COLUMNS": "100", "TERM": "dumb"}
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
            if name in os.environ:
                environment[name] = os.environ[name]
        self.shell = subprocess.Popen([*wrapper, "bash", "--norc", "--noprofile"], stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=environment, cwd="/")
        self.pending = b""

    def run(self, command):
        """The lines that the command printed, and its status."""
        # The status is given back after it was printed, for a command that asks for it.
        text = f"{{ {command}\n}} </dev/null 2>&1\nended=$?; printf '\\n{END} %d\\n' $ended; (exit $ended)\n"
        self.shell.stdin.write(text.encode())
        self.shell.stdin.flush()
        ending = re.compile(rb"\n" + END.encode() + rb" (\d+)\n")
        give_up = time.monotonic() + SECONDS_A_COMMAND
        while not (found := ending.search(self.pending)):
            ready, _, _ = select.select([self.shell.stdout], [], [], max(0, give_up - time.monotonic()))
            more = os.read(self.shell.stdout.fileno(), 65536) if ready else b""
            if not more:
                raise SystemExit(f"no end after {SECONDS_A_COMMAND} s: {command}\n{self.pending.decode()}")
            self.pending += more
        printed = self.pending[:found.start()].decode(errors="replace")
        self.pending = self.pending[found.end():]
        return printed.removesuffix("\n").split("\n") if printed else [], int(found[1])

    def must(self, command):
        lines, status = self.run(command)
        if status != 0:
            raise SystemExit(f"preparing the machine: {command}: {' '.join(lines)}")


def install(build):
    """What the packages would put there, from the build's folder."""
    (PRODUCT / "bin").mkdir(exist_ok=True)
    for program in ("corvaned", "corvane", "corvanecfg", "corvanestat", "corvanemsg", "corvanetab"):
        shutil.copy(build / "bin" / program, PRODUCT / "bin")
    for plugin in ("ext", "mounted"):
        shutil.copy(build / f"plugins/libcorvane_{plugin}.so", PRODUCT / "lib")
    for catalogue in (build / "nls").glob("*/corvanecat.cat"):
        (PRODUCT / "nls" / catalogue.parent.name).mkdir(parents=True)
        shutil.copy(catalogue, PRODUCT / "nls" / catalogue.parent.name)
    shutil.copytree(build / "tables/codeset", PRODUCT / "codeset")
    shutil.copy(build / "version.txt", PRODUCT)


def make_hosts():
    """The client has a network, shared memory, /tmp and /usr/Corvane of its own; a cable joins the two."""
    hosts = pathlib.Path("/etc/hosts")
    hosts.unlink()
    hosts.write_text("127.0.0.1 localhost\n192.0.2.1 controller\n192.0.2.2 client\n")
    controller = Host()
    client = Host("unshare", "--net", "--ipc", "--mount")
    client.must("cp /usr/Corvane/bin/corvane /tmp/corvane && mount -t tmpfs client /usr/Corvane && "
                "mkdir /usr/Corvane/bin && mv /tmp/corvane /usr/Corvane/bin && mount -t tmpfs client /tmp")
    controller.must(f"ip link add san0 type veth peer name san0 netns {client.shell.pid}")
    for host, address in ((controller, "192.0.2.1"), (client, "192.0.2.2")):
        host.must(f"ip addr add {address}/24 dev san0 && ip link set san0 up && ip link set lo up")
    return {"controller": controller, "client": client}


def run_all(commands, build, answer):
    """Runs [host, command] pairs in order and writes what each printed, and its status, into the file `answer`."""
    install(build)
    hosts = make_hosts()
    answers = [hosts[host].run(command) for host, command in commands]
    answer.write_text(json.dumps(answers))
