"""The documentation, tried: examples are run, tables and texts compared with the program, links followed."""
import html
import struct

from harness import *

DOCS = SOURCE / "docs"
TAGS = sorted((DOCS / "tags").glob("*.md"))
MODULE_SOURCE = SOURCE / "plx-modules" / "network"
# The sources whose texts a tag's page has to hold.
SOURCES = {"plxIncludeHTTP": ["HTTP.tag"], "plxPOP": ["POP.tag", "POP/*"], "plxSendMail": ["SendMail.tag", "SendMail/*"],
           "plxEmailClient": ["EmailClient.tag", "EmailClient/*.tag"]}
# What a page's examples are opened with.
ARGUMENTS = {"page-language.md": ["name=<Ada>", "kind=rock"]}
PAGES = {
    "news/today.html": "<p>Rain in the evening.</p>\n",
    "search.html": "<p>&plxPost.q;, in &plxPost.lang;.</p>\n",
    "members/index.html": "<p>Welcome, &plxCGI.REMOTE_USER;.</p>\n",
    "lists/new.txt": "Mercury, Venus, Earth\n",
}
# The first message of the mailbox that the examples collect.
MESSAGE = (b"From: Bob <bob@example.net>\nTo: alice@example.net\nSubject: The planets\nMIME-Version: 1.0\n"
           b'Content-Type: multipart/mixed; boundary="b"\n\n--b\n\nMercury, Venus, Earth\n--b\n'
           b'Content-Type: text/plain; name="planets.txt"\nContent-Disposition: attachment; filename="planets.txt"\n\n'
           b"Mercury\n--b--\n")

SAVE_OPTIONS = "1plxEmailClientAction=ip1lcx"  # the button of the web mail's user options


def blocks(text):
    """The fenced blocks of a page: (word behind the fence, text)."""
    return re.findall(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S)


def pattern(text):
    """An expected text as an expression, in which "…" stands for anything."""
    return ".*?".join(re.escape(part) for part in text.strip().split("…")) + r"\s*\Z"


class Examples(ServerCase):
    SECTIONS = '[region.members]\nsite = "test"\npath = "/members/"\nlogin = true\n'

    @classmethod
    def setUpClass(cls):
        cls.mail = MailServer()
        cls.addClassCleanup(cls.mail.stop)
        cls.PAGES = PAGES
        super().setUpClass()
        cls.server.command("user", "set", "reader", "--region", "test/members", input="secret\n")
        cls.server.command("user", "set", "keeper", "--region", "test/main", input="open sesame\n")
        cls.server.command("records", "import", "Planets", str(SOURCE / "sites/demo/planets.csv"))
        text = "".join(file.read_text() for file in (*TAGS, DOCS / "page-language.md"))
        names = sorted({"alice", *re.findall(r"([a-z]+)@example\.net", text)})
        (cls.mail.folder / "users").write_text("".join(f"{name}:secret\n" for name in names))
        cls.mail.put("alice", MESSAGE)
        cls.run_page('<plxEmailClient mode="addUser" username="ada" password="lovelace">', "account.html")
        cls.server.write("web-mail.html", "<plxEmailClient>")
        cls.web_mail({"POPUsername_plxEmailClient": "alice", "POPPassword_plxEmailClient": "secret", SAVE_OPTIONS: "Save",
                      "POPServer_plxEmailClient": f"127.0.0.1:{cls.mail.pop3_port}"})

    @classmethod
    def web_mail(cls, form):
        answer = cls.server.request("POST", "/web-mail.html", urllib.parse.urlencode(form),
                                    {"Content-Type": "application/x-www-form-urlencoded"}, ("ada", "lovelace"))
        assert answer.status == 200, answer.text

    @classmethod
    def run_page(cls, text, name, arguments=()):
        """What a page becomes, on the command line; one that asks for a login is opened with one."""
        for host, address in (("www.example.net", cls.server.host), ("mail.example.net", cls.mail.address),
                              ("pop.example.net", f"127.0.0.1:{cls.mail.pop3_port}")):
            text = text.replace(host, address)
        cls.server.write(name, re.sub(r' (to|b?cc)="[^"]*"', lambda found: found[0].replace("@example.net", "@test"), text))
        done = cls.server.command("render", "/" + name, *arguments, "--set", f"listen={cls.server.host}", check=False)
        if "the status 401" not in done.stderr:
            assert done.returncode == 0, done.stderr
            return done.stdout
        for user in (("ada", "lovelace"), ("keeper", "open sesame")):
            answer = cls.server.request("GET", "/" + name, user=user)
            if answer.status == 200:
                return answer.text
        raise AssertionError("no login opens " + text)

    def test_every_example_becomes_what_stands_beside_it(self):
        for file in (*TAGS, DOCS / "page-language.md"):
            example, number = None, 0
            for kind, text in blocks(file.read_text()):
                with self.subTest(page=file.name, block=text):
                    if kind == "html":
                        example, number = text, number + 1
                        shown = self.run_page(example, f"{file.stem}-{number}.html", ARGUMENTS.get(file.name, ["name=Ada"]))
                        self.assertNotIn("This part of the page", shown)
                    elif kind == "result":
                        self.assertRegex(shown.replace("\r\n", "\n").strip(), "(?s)^" + pattern(text))
                    elif kind == "mail":
                        name = re.search(r"^To: (\w+)@", text, re.M)[1]
                        [message] = self.mail.wait_for(1, name)
                        message = message.decode().replace("\r\n", "\n").replace("@test", "@example.net")
                        self.assertRegex(message.strip(), "(?s)^" + pattern(text))
            self.assertGreater(number, 1, file)
        self.assertEqual(json.loads(self.server.command("queue", "list", "--json").stdout), [])
        self.assertEqual((self.server.root / "Attachments" / "archive" / "planets.txt").read_bytes(), b"Mercury")

    def test_the_record_of_a_mailbox(self):
        """The worked example of the file formats, made by the web mail."""
        text = (DOCS / "file-formats.md").read_text()
        [message] = [block for _, block in blocks(text) if block.startswith("Date: Mon")]
        [dump] = [block for _, block in blocks(text) if block.startswith("00000000")]
        expected = bytearray(256)
        for offset, row in re.findall(r"^([0-9a-f]{8})  ((?:[0-9a-f]{2} ){16})", dump, re.M):
            expected[int(offset, 16):int(offset, 16) + 16] = bytes.fromhex(row)
        self.mail.put("alice", message.encode())
        self.web_mail({"any": "button"})
        folder = self.server.root / "plxEmailClient Data" / "ada" / "Mailboxes"
        messages = (folder / "Inbox.mbx").read_bytes()
        records = [bytes(row) for row, in struct.iter_unpack("256s", (folder / "Inbox.idx").read_bytes())]
        [record] = [row for row in records if row[186:188] == b"Hi"]
        # Whatever other messages there are before it.
        offset = struct.unpack_from("<I", record, 12)[0]
        self.assertEqual(messages[offset:offset + 88], message.replace("\n", "\r\n").encode() + b".\r\n")
        self.assertEqual(record[:4] + bytes(12) + record[16:], bytes(expected))


def statements(source):
    """The statements of a C++ source: the code without its texts, and the texts, those beside each other joined."""
    token = re.compile(r'//[^\n]*|/\*.*?\*/|\s+|"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])+\'|[;{}]|[^\s"\'/;{}]+|/', re.S)
    code, texts, isText = "", [], False
    for match in token.finditer(source):
        word = match[0]
        if word.isspace() or word.startswith(("//", "/*")):
            continue
        if word.startswith('"'):
            word = re.sub(r"\\(.)", lambda found: {"n": "\n", "r": "\r"}.get(found[1], found[1]), word[1:-1])
            texts = [*texts[:-1], texts[-1] + word] if isText else [*texts, word]
            isText = True
            continue
        isText = False
        code += " " + word
        if word == ";":
            yield code, texts
            code, texts = "", []


def told(files, without=None):
    """The sentences, or parts of sentences, that sources tell people when something is wrong."""
    reports = re.compile(r"PLXFail\(|PLXLog::(?:Warning|Error|Failure)\(|ToServerLog\(|_error\(|RecordError\(|SQLError\(|Compla|AddProblem\(|"
                         r"Fault\{|ErrorPage\(|ErrorAnswer\(|Refuse|BadRequest\(|Report|SetErrorInformation\(|Fail\(|refused\(|problem|"
                         r"[Rr]emedy|reason|[Ww]arning")
    for file in files:
        for code, texts in statements(file.read_text()):
            is_told = reports.search(code) and not (without and without in code)
            for text in texts if is_told else ():
                plain = re.sub(r"\s+", " ", html.unescape(re.sub(r"<[^>]*>", "", text))).strip()
                if len(re.findall(r"[A-Za-z]{2,}", plain)) >= 4 and not re.search(r"\b(SELECT|INSERT|CREATE TABLE|ALTER TABLE|UPDATE|DELETE FROM)\b", plain):
                    yield plain


def text_of(file):
    return re.sub(r"\s+", " ", file.read_text().replace("`", ""))


class Texts(unittest.TestCase):
    maxDiff = None

    def test_every_parameter_and_limit_of_a_tag_is_in_its_page(self):
        source = "".join(file.read_text() for file in sorted(MODULE_SOURCE.rglob("*")) if file.suffix in (".tag", ".cpp"))
        words = re.findall(r'STRING_ID_CONSTANT\(k(HTTPInclude|SendMail|EmailClient|EmailClientAdmin|POP)(Parameter|Mode|Data)_\w+, "(\w+)"\)', source)
        limits = re.findall(r"k(SendMail|EmailClient|POP)\w*(Default|Largest)\w* = (\d+);", source)
        self.assertGreater(len(words), 40)
        self.assertGreater(len(limits), 4)
        pages = {"HTTPInclude": "plxIncludeHTTP", "SendMail": "plxSendMail", "POP": "plxPOP"}
        for area, kind, word in words + limits:
            page = (DOCS / "tags" / f"{pages.get(area, 'plxEmailClient')}.md").read_text()
            self.assertRegex(page, rf"\b{word}\b" if word.isdigit() else f"`{word}`")
            if kind == "Parameter":
                examples = "".join(text for language, text in blocks(page) if language == "html")
                self.assertRegex(examples, rf'\b{word}="', "no example has this parameter")

    def test_every_text_of_a_problem(self):
        server = [file for file in (SOURCE / "plx-server").rglob("*.cpp")]
        module = [file for file in MODULE_SOURCE.rglob("*") if file.suffix in (".tag", ".cpp")]
        self.assertEqual([text for text in told(server + module) if text not in text_of(DOCS / "errors.md")], [])
        for tag, patterns in SOURCES.items():
            files = [file for one in patterns for file in MODULE_SOURCE.glob(one)]
            page = text_of(DOCS / "tags" / f"{tag}.md")
            # What only the log says is no business of a page.
            self.assertEqual([text for text in told(files, without="ournal") if text not in page], [], tag)

    def test_every_key_with_its_default(self):
        rows = {}
        for names, default in re.findall(r"^\| ((?:`\[\w+\.NAME\]` )?`[^|]*`) \| ([^|]*)\|", (DOCS / "server-guide.md").read_text(), re.M):
            defaults = default.strip().replace("`", "").split(", ")
            for index, name in enumerate(re.findall(r"`([\w-]+)`", names)):
                rows.setdefault(name, []).append(defaults[index] if len(defaults) > 1 and "[" not in default else default.strip().replace("`", ""))
        said = subprocess.run([SERVER, "serve", "--help"], text=True, capture_output=True).stdout
        keys = re.findall(r"^([\w-]+) = (.*?)  # ", said, re.M)
        self.assertGreater(len(keys), 30)
        for name, default in keys:
            with self.subTest(name):
                if name == "security-headers":  # three headers, told in words
                    self.assertIn("nosniff", rows[name][0])
                else:
                    self.assertIn("" if default == "none" else default, rows[name])

    def test_every_link_leads_somewhere(self):
        pages = [SOURCE / "README.md", SOURCE / "CHANGELOG.md", *DOCS.rglob("*.md")]
        for page in pages:
            text = re.sub(r"^```.*?^```$", "", page.read_text(), flags=re.M | re.S)
            for link in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`\n]*`", "", text)):
                if re.match(r"\w+:", link):
                    continue
                path, _, anchor = link.partition("#")
                target = (page.parent / path).resolve() if path else page
                with self.subTest(page=page.name, link=link):
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(target.read_text()))
        # And every page is reached.
        index = (DOCS / "README.md").read_text() + (DOCS / "decisions" / "README.md").read_text()
        self.assertEqual([page.name for page in DOCS.rglob("*.md") if page.name != "README.md" and page.name not in index], [])


def anchors(text):
    """The names that headings get: lower case, without punctuation, blanks as hyphens."""
    text = re.sub(r"^```.*?^```$", "", text, flags=re.M | re.S)
    found = []
    for heading in re.findall(r"^#+ (.*)$", text, re.M):
        name = re.sub(r"[^\w\- ]", "", heading.replace("`", "").lower()).replace(" ", "-")
        found.append(name + (f"-{found.count(name)}" if name in found else ""))
    return found


if __name__ == "__main__":
    unittest.main(verbosity=2)
