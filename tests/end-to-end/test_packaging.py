"""What is installed: the files that the packages hold, the manual page, the completion, and the example module, which is built
against the installed headers alone and loaded into the installed server."""
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

import harness
from harness import SOURCE, Server

BUILD = Path(os.environ["PLX_BUILD"])
HELLO = SOURCE / "examples" / "hello-module"


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], text=True, capture_output=True, timeout=300, **options)
    assert done.returncode == 0, f"{command}: exit {done.returncode}: {done.stdout}{done.stderr}"
    return done.stdout


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="plx-packaging.")
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.folder = Path(cls.temporary.name)
        for component in ("server", "dev"):
            run("cmake", "--install", BUILD, "--component", component, env={**os.environ, "DESTDIR": str(cls.folder / "root")})
        [cls.server] = (cls.folder / "root").rglob("bin/plxserver")
        cls.prefix = cls.server.parents[1]

    def found(self, name):
        [file] = (self.folder / "root").rglob(name)
        return file

    def helps(self):
        """What --help says, of the program and of each of its commands: {("user", "set"): text}."""
        helps, waiting = {}, [()]
        while waiting:
            words = waiting.pop()
            helps[words] = run(self.server, *words, "--help")
            listed = re.search(r"^Subcommands:\n((?:  .*\n)+)", helps[words], re.M)
            waiting += [(*words, name) for name in re.findall(r"^  (\S+)", listed[1] if listed else "", re.M)]
        return helps

    def test_the_example_configuration_is_good_and_shows_the_sample_site(self):
        text = self.found("etc/plxserver/plxserver.conf").read_text()
        configured = re.search(r'"(.*)/lib/plxserver/plxmodule-network.so"', text)[1]
        config = self.folder / "plxserver.conf"
        config.write_text(text.replace(configured, str(self.prefix)).replace("/var/lib", str(self.folder)))
        run(self.server, "check", "--config", config, "--set", "listen=127.0.0.1:0")
        page = run(self.server, "render", "/", "name=A<da", "--config", config)
        self.assertIn('<div class="shown">Hello, A&lt;da!</div>', page)
        self.assertNotIn("<plx", page)

    def test_the_manual_page_tells_every_command_option_and_key(self):
        page = run("zcat", self.found("plxserver.8.gz")).replace("\\-", "-")
        for words, help in self.helps().items():
            missing = [option for option in re.findall(r"^  (?:-\w,)?(--[\w-]+)", help, re.M) if option not in page]
            self.assertEqual(missing, [], words)
            if "Subcommands:" not in help:
                self.assertIn('.SS "plxserver ' + " ".join(words), page)
        keys = re.findall(r"^([\w-]+) = .*  # (.+)$", self.helps()[("serve",)], re.M)
        self.assertGreater(len(keys), 30)
        for key, meaning in keys:
            self.assertRegex(page, rf"(?m)^\\fB{key} = .*\n{re.escape(meaning)}$")

    def test_completion(self):
        helps = self.helps()
        commands = {words[0] for words in helps if words}
        rows = (
            ("plxserver ", commands),
            ("plxserver re", {name for name in commands if name.startswith("re")}),
            ("plxserver user ", {words[1] for words in helps if len(words) == 2 and words[0] == "user"}),
            ("plxserver serve --l", {"--listen"}),
            ("plxserver --config x.conf serve --tr", {"--trace"}),
            ("plxserver check --config plx", {"plxserver.conf"}),
            ("plxserver user set --region us", set()),
            ("plxserver records import Planets pla", {"planets.csv"}),
            ("plxserver user list --wrong*[x ", set()),
        )
        (self.folder / "here").mkdir()
        for name in ("plxserver.conf", "planets.csv"):
            (self.folder / "here" / name).touch()
        for line, expected in rows:
            with self.subTest(line):
                words = line.split(" ")
                script = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _plxserver; '
                          'printf "%s\\n" "${COMPREPLY[@]}"')
                said = run("bash", "-c", script, "bash", self.found("completions") / "plxserver", *words,
                           cwd=self.folder / "here", env={**os.environ, "PATH": f"{self.server.parent}:{os.environ['PATH']}"})
                self.assertEqual(set(said.split()), expected)

    def greets(self, module):
        """The example's own page, and what it does with a wrong tag, in a server with this module."""
        harness.MODULE = str(module)
        pages = {"index.html": (HELLO / "site" / "index.html").read_text(), "nobody.html": "[<plxHello>]",
                 "long.html": f'<plxHello name="{"a" * 5000}">'}
        server = Server(pages)
        self.addCleanup(server.stop)
        self.assertIn("<h1>Hello, Ada &lt;b&gt;&amp;&quot;!</h1>", server.get("/?name=Ada+%3Cb%3E%26%22").text)
        self.assertEqual(server.get("/long.html").text, f"Hello, {'a' * 5000}!")
        self.assertIn("missing its parameter <code>name</code>", server.get("/nobody.html").text)

    def test_the_example_module_as_part_of_the_tree(self):
        self.greets(BUILD / "examples" / "hello-module" / "plxmodule-hello.so")

    def test_the_example_module_against_what_is_installed(self):
        build = self.folder / "hello"
        run("cmake", "-G", "Ninja", "-S", HELLO, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        self.greets(build / "plxmodule-hello.so")

    def test_a_module_on_the_foundation(self):
        """What pkg-config says is enough for a module that uses the library with its wrappers."""
        source = self.folder / "shout.cpp"
        source.write_text('#include "PLXModuleAPIGlue.h"\n'
                          'extern "C" PLXUInt32 ProcessPLXRequest(_PLXAPI_ModuleProcessingInfo* info) {\n'
                          '  if (info->eventCode_i == kPLXEvent_Initialize) {\n'
                          '    PLXGlueRegisterModuleName(info, "Shout");\n'
                          '    return PLXGlueRegisterForTag(info, PLXTag("plxShout"), kPLXTagFlag_StandsAlone) ? 0 : kPLXResult_Unknown;\n'
                          '  }\n'
                          '  if (info->eventCode_i != kPLXEvent_Tag) return kPLXResult_EventNotHandled;\n'
                          '  PLXString text;\n'
                          '  PLXGlueGetRequiredTagParameter(info, PLXStringID("text", PLXStringID::kIgnoreCase), 0, text);\n'
                          '  text.ConvertToUppercase();\n'
                          '  PLXGlueWriteToServer(info, text);\n'
                          '  return 0;\n'
                          '}\n')
        flags = run("pkg-config", f"--define-variable=prefix={self.prefix}", "--cflags", "--libs", "plx-foundation",
                    env={**os.environ, "PKG_CONFIG_PATH": str(self.found("plx-foundation.pc").parent)}).split()
        module = self.folder / "shout.so"
        run("g++", "-shared", "-fPIC", "-Wl,--no-undefined", "-o", module, source, *flags)
        harness.MODULE = str(module)
        server = Server({"page.html": '[<plxShout text="ada">]'})
        self.addCleanup(server.stop)
        self.assertEqual(server.get("/page.html").text, "[ADA]")


if __name__ == "__main__":
    unittest.main()
