"""What is in the package, without installing it."""

import configparser
import json
import re
import shutil
import subprocess
from pathlib import Path
from xml.etree import ElementTree

import pytest
from package import ENVIRONMENT, PACKAGE, SOURCE, VERSION, alternatives, field, needs, output

FILES = {
    "usr/bin/skylet": 0o755,
    "usr/share/applications/com.vorn.skylet.desktop": 0o644,
    "usr/share/doc/skylet/changelog.gz": 0o644,
    "usr/share/doc/skylet/copyright": 0o644,
    "usr/share/icons/hicolor/scalable/apps/com.vorn.skylet.svg": 0o644,
    "usr/share/icons/hicolor/symbolic/apps/com.vorn.skylet-symbolic.svg": 0o644,
    "usr/share/man/man1/skylet.1.gz": 0o644,
    "usr/share/metainfo/com.vorn.skylet.metainfo.xml": 0o644,
}
# what the program needs without linking it
NEEDED_BESIDES = [["ca-certificates"], ["default-dbus-session-bus", "dbus-session-bus"]]


@pytest.fixture(name="desktop_entry")
def _desktop_entry(unpacked):
    parser = configparser.ConfigParser(interpolation=None, delimiters=("=",))
    parser.optionxform = str
    parser.read(unpacked / "usr/share/applications/com.vorn.skylet.desktop", encoding="utf-8")
    return parser


@pytest.fixture(name="metainfo")
def _metainfo(unpacked):
    return ElementTree.parse(unpacked / "usr/share/metainfo/com.vorn.skylet.metainfo.xml").getroot()


def imports(unpacked):
    """The names of the functions that the program has from libraries."""
    return re.findall(r" U (\w+)", output("nm", "--dynamic", unpacked / "usr/bin/skylet"))


def test_it_holds_these_files_and_no_others(unpacked):
    found = {str(path.relative_to(unpacked)): path.stat().st_mode & 0o7777 for path in unpacked.rglob("*") if not path.is_dir()}
    assert found == FILES


def test_everything_belongs_to_root_and_folders_are_open_to_all():
    rows = [line.split() for line in output("dpkg-deb", "--contents", PACKAGE).splitlines()]
    assert {row[1] for row in rows} == {"root/root"}
    assert {row[0] for row in rows if row[5].endswith("/")} == {"drwxr-xr-x"}


def test_installing_it_runs_no_scripts(folder):
    output("dpkg-deb", "--control", PACKAGE, folder / "control")
    assert {path.name for path in (folder / "control").iterdir()} == {"control", "md5sums"}


def test_lintian_finds_nothing(folder):
    assert output("lintian", "--allow-root", "--pedantic", "--display-info", PACKAGE, env=ENVIRONMENT | {"TMPDIR": str(folder)}) == ""


def test_the_desktop_entry_is_valid(unpacked):
    assert output("desktop-file-validate", unpacked / "usr/share/applications/com.vorn.skylet.desktop") == ""


def test_the_desktop_entry_is_no_autostart_entry(desktop_entry):
    keys = set(desktop_entry["Desktop Entry"])
    assert not {key for key in keys if "Autostart" in key}
    assert desktop_entry.sections() == ["Desktop Entry"]


def test_the_desktop_entry_names_what_is_in_the_package(desktop_entry):
    entry = desktop_entry["Desktop Entry"]
    assert f"usr/bin/{entry['Exec']}" in FILES
    assert f"usr/share/icons/hicolor/scalable/apps/{entry['Icon']}.svg" in FILES


@pytest.mark.parametrize("key", ["Comment", "Keywords", "GenericName"])
def test_the_desktop_entry_speaks_hebrew_too(desktop_entry, key):
    entry = desktop_entry["Desktop Entry"]
    assert re.search("[א-ת]", entry[f"{key}[he]"])
    assert not re.search("[א-ת]", entry[key])


def test_the_metainfo_is_valid(unpacked):
    assert "Validation was successful" in output("appstreamcli", "validate", "--pedantic", "--no-net", "--no-color",
                                                 unpacked / "usr/share/metainfo/com.vorn.skylet.metainfo.xml")


def test_the_metainfo_describes_this_version_and_belongs_to_the_desktop_entry(metainfo):
    assert metainfo.find("releases/release").get("version") == VERSION
    assert f"usr/share/applications/{metainfo.findtext('launchable')}" in FILES
    assert metainfo.find("content_rating").get("type") == "oars-1.1"


def test_the_metainfo_tells_the_true_sizes_of_pictures_that_exist(metainfo):
    images = metainfo.findall("screenshots/screenshot/image")
    assert images
    for image in images:
        picture = SOURCE / "docs/images" / image.text.rsplit("/", 1)[1]
        # a PNG's width and height are at fixed places in its head
        head = picture.read_bytes()[16:24]
        assert (int(image.get("width")), int(image.get("height"))) == (
            int.from_bytes(head[:4], "big"), int.from_bytes(head[4:], "big"))


@pytest.fixture(name="manual", scope="module")
def _manual(unpacked):
    """The manual as man shows it, each paragraph on one line."""
    needs("man")
    page = unpacked / "usr/share/man/man1/skylet.1.gz"
    done = subprocess.run(["man", "--warnings=w", "--local-file", page], capture_output=True, text=True, check=True,
                          env={"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "MANWIDTH": "1000", "PAGER": "cat"})
    assert done.stderr == "", "man complains of how it is laid out"
    return re.sub(" +", " ", done.stdout)


def test_the_manual_is_that_of_this_version(manual):
    assert f"Skylet {VERSION}" in manual


@pytest.mark.parametrize("topic", [
    "EXIT STATUS", "SIGTERM, SIGINT, SIGHUP", "no display", "https_proxy, all_proxy, no_proxy", "LANGUAGE, LC_ALL, LC_MESSAGES, LANG",
    "DBUS_SESSION_BUS_ADDRESS", "XDG_CURRENT_DESKTOP", "QT_LOGGING_RULES", "DISPLAY, WAYLAND_DISPLAY", "$XDG_CONFIG_HOME/skylet/skylet.ini",
    "skylet.ini.corrupt", "$XDG_CONFIG_HOME/autostart/com.vorn.skylet.desktop", "/tmp/skylet.log", "$XDG_RUNTIME_DIR/skylet-*/"])
def test_the_manual_tells_what_decides_over_the_program_and_what_it_leaves(manual, topic):
    assert topic in manual


def test_manual_and_description_tell_of_the_data_that_it_uses(manual):
    for text in (manual, re.sub(r"\s+", " ", field("Description"))):
        assert "speed test" in text
        assert "0.5 MB an hour" in text
        assert "63 MB" in text


def test_the_documents_name_all_that_the_program_asks(manual):
    constants = (SOURCE / "cmake/BuildConstants.cmake").read_text()
    hosts = set(re.findall(r"https://([\w.]+)/", constants)) | set(re.findall(r'SPEEDTEST_HOST "([\w.]+)"', constants))
    assert len(hosts) == 3
    for text in (manual, *((SOURCE / name).read_text() for name in ("README.md", "docs/privacy.md"))):
        assert [host for host in hosts if host not in text] == []


@pytest.mark.parametrize("document", [path for folder in ("", "docs/", "packaging/", "bench/**/", "tests/**/")
                                      for path in SOURCE.glob(f"{folder}*.md")], ids=lambda path: str(path.relative_to(SOURCE)))
def test_what_a_document_leads_to_is_there(document):
    text = document.read_text()
    named = [SOURCE / path for path in re.findall(r"(?:^|[\s`])((?:script|bench|docs|packaging|cmake)/[\w./-]*\w)", text, re.MULTILINE)]
    linked = [document.parent / path for path in re.findall(r"\]\(([^)#:]+)", text)]
    assert [path for path in named + linked if not path.exists()] == []


def test_the_table_of_figures_names_constants_that_are_there():
    rows = re.findall(r"^\|.*\| `([^`]+)` \| `(\w+)` \|$", (SOURCE / "docs/architecture.md").read_text(), re.MULTILINE)
    assert len(rows) > 10
    assert [row for row in rows if not re.search(rf"\b{row[1]}\b", (SOURCE / row[0]).read_text())] == []


@pytest.mark.parametrize("placeholder", [
    "skylet@", "{SKYLET_WEBSITE}/skylet", "{SKYLET_WEBSITE}/bugs", "{SKYLET_WEBSITE}/source",
    "2026-11-21", '"https://brimlake.example', "All rights reserved."])
def test_what_the_owners_have_to_decide_stands_in_one_place(placeholder):
    files = [SOURCE / "CMakeLists.txt", *SOURCE.glob("cmake/*"), *SOURCE.glob("packaging/**/*"), *SOURCE.glob("src/**/*")]
    lines = [line for path in files if path.is_file() and path.suffix != ".md" for line in path.read_text().splitlines()
             if placeholder in line and "string(REPLACE" not in line]
    assert len(lines) == 1 and lines[0].startswith("set("), lines


def test_the_first_page_names_what_it_takes_to_build_and_to_run():
    script, page = ((SOURCE / name).read_text() for name in ("script/packages", "README.md"))
    lists = re.findall(r'^ *(?:\[build\]|\[run\]|fedora|arch)="(.*)"$', script, re.MULTILINE)
    assert len(lists) == 4
    needed = {name for words in (*lists, field("Recommends").replace(",", "")) for name in words.split()} - {"ccache"}
    assert [name for name in needed if not re.search(rf"[` ]{re.escape(name)}[` ]", page)] == []


def run_without(folder, missing, *script):
    """(exit code, all that it says) of one of the scripts where nothing has to be built and these tools are missing."""
    for name in ("packages", "run"):
        (folder / "script" / name).parent.mkdir(exist_ok=True)
        shutil.copy(SOURCE / "script" / name, folder / "script")
    (folder / "script/build").write_text("#!/bin/sh\n")
    (folder / "script/build").chmod(0o755)
    tools = folder / "tools"
    tools.mkdir()
    for path in (path for place in ("/usr/bin", "/usr/sbin") for path in Path(place).iterdir()):
        if path.name not in missing and not (tools / path.name).is_symlink():
            (tools / path.name).symlink_to(path)
    done = subprocess.run([folder / "script" / script[0], *script[1:]], env=ENVIRONMENT | {"PATH": str(tools)}, timeout=60,
                          text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return done.returncode, done.stdout


@pytest.mark.parametrize("missing,code", [((), 0), (("cmake",), 1)])
def test_without_apt_it_is_said_what_to_install(tmp_path, missing, code):
    exit_code, said = run_without(tmp_path, ("apt-get", *missing), "packages", "build", "run")
    assert exit_code == code
    for line in ("There is no apt-get here", "on Fedora: dnf install gcc-c++ cmake", "on Arch: pacman -S --needed gcc cmake"):
        assert line in said
    assert [tool for tool in missing if f"{tool} is missing" not in said] == []


def test_without_a_screen_and_what_a_virtual_one_takes_a_start_says_so(tmp_path):
    exit_code, said = run_without(tmp_path, ("apt-get", "Xvfb"), "run")
    assert exit_code == 1 and "Xvfb is missing" in said.splitlines()[-1]


def test_the_licence_is_that_of_its_file(unpacked):
    expression, notice = (SOURCE / "LICENSE").read_text().splitlines()[:2]
    expression = expression.removeprefix("SPDX-License-Identifier: ")
    papers = [(unpacked / "usr/share" / path).read_text() for path in ("metainfo/com.vorn.skylet.metainfo.xml", "doc/skylet/copyright")]
    assert [paper for paper in papers if expression not in paper or notice not in paper] == []
    others = [path for path in (SOURCE / "README.md", *SOURCE.glob("packaging/**/*")) if path.is_file()]
    assert [path for path in others if expression in path.read_text() or notice in path.read_text()] == []


def test_it_depends_on_what_the_program_links_and_on_what_it_needs_besides_and_on_nothing_else(unpacked):
    linked = re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "--dynamic", "--wide", unpacked / "usr/bin/skylet"))
    where = output("ldconfig", "--print-cache")
    owners = set()
    for library in linked:
        path = re.search(rf"^\s{re.escape(library)} \(libc6,x86-64.*=> (\S+)$", where, re.MULTILINE)[1]
        # packages own libraries under /usr; the linker's cache may know them by the older names of the same folders
        found = subprocess.run(["dpkg-query", "--search", path, f"/usr{path}", path.removeprefix("/usr")], capture_output=True,
                               text=True, check=False).stdout
        owners.add(found.split(":")[0])
    depends = alternatives("Depends")
    assert [group for group in depends if group in NEEDED_BESIDES] == NEEDED_BESIDES
    assert {name for group in depends if group not in NEEDED_BESIDES for name in group} == owners


def test_the_size_that_it_tells_does_not_hang_on_the_file_system_that_it_was_packed_on(unpacked):
    inside = list((unpacked / "usr").rglob("*"))
    sizes = [1, *(1 if path.is_dir() else -(-path.stat().st_size // 1024) for path in inside)]
    assert int(field("Installed-Size")) == sum(sizes)


def test_the_version_is_that_of_the_project():
    assert field("Version") == VERSION


class TestHardening:
    @pytest.fixture(name="elf")
    def _elf(self, unpacked):
        return output("readelf", "--file-header", "--program-headers", "--dynamic", "--wide", unpacked / "usr/bin/skylet")

    def test_the_program_can_be_loaded_anywhere(self, elf):
        assert re.search(r"Type:\s+DYN", elf)
        assert re.search(r"FLAGS_1\).* PIE", elf)

    def test_what_the_loader_filled_in_cannot_be_written(self, elf):
        assert "GNU_RELRO" in elf
        assert re.search(r"FLAGS_1\).* NOW", elf)

    def test_nothing_is_both_written_and_executed(self, elf):
        stack = re.search(r"GNU_STACK.*", elf)[0]
        assert " RW " in stack
        assert not re.search(r"LOAD.* RWE ", elf)

    def test_libraries_are_looked_for_in_the_systems_folders_alone(self, elf):
        assert "RPATH" not in elf and "RUNPATH" not in elf

    def test_overwritten_stacks_are_noticed(self, unpacked):
        assert "__stack_chk_fail" in imports(unpacked)

    def test_copies_into_buffers_whose_size_is_known_at_run_time_are_checked(self, unpacked):
        assert "__memcpy_chk" in imports(unpacked)

    def test_every_file_is_compiled_with_checks_on_buffers_and_stacks(self):
        everything = json.loads((PACKAGE.parent / "compile_commands.json").read_text())
        compiled = [entry for entry in everything
                    if any(Path(entry["file"]).is_relative_to(folder / "src") for folder in (SOURCE, PACKAGE.parent))]
        # files that the build has joined include those of the project
        texts = [Path(entry["file"]).read_text() for entry in compiled]
        assert {path.name for path in (SOURCE / "src").rglob("*.cpp")} <= {
            Path(name).name for name in (*(entry["file"] for entry in compiled), *re.findall(r'#include "(.*)"', "\n".join(texts)))}
        commands = [entry["command"] for entry in compiled]
        for flag in ("-D_FORTIFY_SOURCE=3", "-O3", "-fstack-protector-strong", "-fstack-clash-protection"):
            assert [command for command in commands if flag not in command.split()] == []
        # -fPIE is enough for what only the program itself has
        assert [command for command in commands if not {"-fPIC", "-fPIE"} & set(command.split())] == []
        # what stands last wins
        assert not [command for command in commands if re.search("-D_FORTIFY_SOURCE=3 .*(FORTIFY_SOURCE| -O[0g])", command)]
