"""docs/mdm.md: its scripts run, its queries answer, its identifiers and sums are right."""

import json
import pathlib
import re
import sqlite3
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENT = (ROOT / "docs/mdm.md").read_text(encoding="utf-8")
STEPS = ["Profile", "Package", "Detection", "Attribute", "Update", "Removal"]


def blocks(language, name):
    return re.findall(rf"^```{language} {name}\n(.*?)^```$", DOCUMENT, re.MULTILINE | re.DOTALL)


def tables(section):
    """The rows of every table below a heading, without the heads."""
    text = re.split(rf"^## {re.escape(section)}$", DOCUMENT, flags=re.MULTILINE)[1]
    text = re.split(r"^## ", text, flags=re.MULTILINE)[0]
    return [[[cell.strip() for cell in row.strip("|").split("|")] for row in table.splitlines()[2:]]
            for table in re.findall(r"(?:^\|.*\n)+", text, re.MULTILINE)]


@pytest.mark.parametrize("system", ["Jamf Pro", "Microsoft Intune", "Kandji (Iru)", "Mosyle",
                                    "Workspace ONE UEM", "Munki"])
def test_each_system_has_every_step_in_the_order_of_doing_it(system):
    [rows] = tables(system)
    assert [row[0] for row in rows] == STEPS + ["Allow-list"] and all(row[1] for row in rows)


def test_identifiers_are_those_of_the_sources():
    info = (ROOT / "resources/macos/Info.plist.in").read_text()
    package = (ROOT / "script/package").read_text()
    [service] = re.findall(r"--identifier (com\S+)", package)
    [receipt] = re.findall(r"^identifier=(\S+)$", package, re.MULTILINE)
    [application] = re.findall(r"<string>(com\.velmor\.[a-z.]+)</string>", info)
    [rows] = tables("Allow-lists")
    assert rows[0][1:] == [f"`{application}`", f"`{service}`"]
    assert set(re.findall(r"com\.velmor\.pellix(?:[a-z.-]*[a-z])?", DOCUMENT)) == {
        "com.velmor.pellix", application, receipt, service, f"{application}.json",
        "com.velmor.pellix.first-login", "com.velmor.pellix.first-login.plist",
        "com.velmor.pellix.menubar.plist"}


# Scripts.

def run(script, folder, **variables):
    return subprocess.run(["/bin/bash", "-c", script], cwd=folder, env={"PATH": "/usr/bin:/bin"} | variables,
                          check=False, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=60)


@pytest.fixture
def tools(tmp_path):
    """Tools that say how they were called, with everything in them that a shell may take amiss."""
    for name in ("doctor", "uninstall"):
        (tmp_path / name).write_text(
            "#!/bin/bash\n# It's \"quoted\", `odd` and $strange\nread -r line\n"
            "case $1 in --line | --all-users) echo \"called with $*$line\" ;; *) exit 9 ;; esac\nexit 7\n")
    return tmp_path


@pytest.mark.parametrize("name, form", [("attribute.sh", "{}"), ("attribute-jamf.sh", "<result>{}</result>")])
def test_the_attribute_scripts_print_the_doctors_line_and_succeed_whatever_it_finds(tools, name, form):
    made = run("set -e\n" + "".join(blocks("sh", "attribute")), tools)
    assert (made.returncode, made.stdout, made.stderr) == (0, "", "")
    assert (tools / name).read_text().startswith("#!/bin/bash\n")
    temporary = tools / "temporary"
    temporary.mkdir()
    result = run(f"/bin/bash {name} / computer ann '' --json", tools, TMPDIR=str(temporary))
    assert (result.returncode, result.stdout, result.stderr) == (0, form.format("called with --line") + "\n", "")
    assert not list(temporary.iterdir())


def test_the_removal_script_removes_for_all_users(tools):
    [script] = blocks("sh", "removal")
    assert run(script, tools).returncode == 0
    assert run("/bin/bash remove.sh", tools).stdout == "called with --all-users\n"
    assert (tools / "remove.sh").read_text().startswith("#!/bin/bash\nset -- --all-users\n")


@pytest.mark.parametrize("installed, status", [
    ("1.0.0", 0), ("1.0.1", 0), ("1.10.0", 0), ("2.0", 0), ("10.0.0", 0), ("0.9.9", 1), ("0.99.0", 1), (None, 1)])
def test_the_detection_knows_older_from_newer(tmp_path, installed, status):
    [script] = blocks("bash", "detection")
    plist = tmp_path / "Velmor Pellix.app/Contents/Info.plist"
    plist.parent.mkdir(parents=True)
    if installed:
        plist.write_text(installed)
    plutil = tmp_path / "plutil"
    plutil.write_text('#!/bin/bash\n[[ $* == "-extract CFBundleShortVersionString raw -o - "* ]] && cat "${@: -1}"\n')
    plutil.chmod(0o755)
    script = script.replace("/usr/bin/plutil", str(plutil)).replace("/Applications/", f"{tmp_path}/")
    assert run(script, tmp_path).returncode == status


def test_the_detection_wants_the_version_that_is_built():
    [version] = re.findall(r"project\(VelmorPellix VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    assert re.findall(r"^wanted=(.+)$", DOCUMENT, re.MULTILINE) == [version]
    assert set(re.findall(r"VelmorPellix-([\d.]+)\.pkg", DOCUMENT)) == {version}


# osquery. Its tables with the columns that its documentation publishes, and what a query must narrow
# down for the table to answer at all.

COLUMNS = {
    "apps": "name path bundle_executable bundle_identifier bundle_name bundle_short_version bundle_version "
            "bundle_package_type environment element compiler development_region display_name info_string "
            "minimum_system_version category applescript_enabled copyright last_opened_time",
    "hash": "path directory md5 sha1 sha256",
    "launchd": "path name label program run_at_load keep_alive on_demand disabled username groupname "
               "stdout_path stderr_path start_interval program_arguments watch_paths queue_directories "
               "inetd_compatibility start_on_mount root_directory working_directory process_type",
    "listening_ports": "pid port protocol family address net_namespace fd socket path",
    "managed_policies": "domain uuid name value username manual",
    "package_receipts": "package_id package_filename version location install_time installer_name path",
    "plist": "key subkey value path",
    "processes": "pid name path cmdline state cwd root uid gid euid egid suid sgid on_disk wired_size "
                 "resident_size total_size user_time system_time disk_bytes_read disk_bytes_written "
                 "start_time parent pgroup threads nice",
    "signature": "path hash_resources hash_executable arch signed identifier cdhash team_identifier "
                 "authority entitlements",
    "users": "uid gid uid_signed gid_signed username description directory shell uuid is_hidden",
}
NUMBERS = {"pid", "uid", "gid", "protocol", "signed", "start_time", "manual", "install_time"}
REQUIRED = {"hash": "path", "plist": "path", "signature": "path"}
APPLICATION = "/Applications/Velmor Pellix.app"
PROGRAM = f"{APPLICATION}/Contents/MacOS/Velmor Pellix"
SERVICE = "Library/Application Support/VelmorPellix/velmor-guard"
CONTENT = {
    "users": [{"uid": 501, "username": "ann", "directory": "/Users/ann"},
              {"uid": 502, "username": "bob", "directory": "/Users/bob"},
              {"uid": 0, "username": "root", "directory": "/var/root"}],
    "launchd": [
        {"label": "com.velmor.pellix", "path": "/Users/ann/Library/LaunchAgents/com.velmor.pellix.plist",
         "program_arguments": f"/Users/ann/{SERVICE} run --port 8787", "run_at_load": "1", "keep_alive": "1",
         "process_type": "Background"},
        {"label": "com.velmor.pellix.menubar", "run_at_load": "1", "keep_alive": "0", "program_arguments": PROGRAM,
         "path": "/Users/ann/Library/LaunchAgents/com.velmor.pellix.menubar.plist", "process_type": "Interactive"},
        {"label": "com.velmor.pellix.menubar", "program_arguments": "/Volumes/Velmor Pellix/Velmor Pellix.app/x",
         "path": "/Users/bob/Library/LaunchAgents/com.velmor.pellix.menubar.plist"},
        {"label": "com.velmor.pellix.first-login", "run_at_load": "1",
         "path": "/Library/LaunchAgents/com.velmor.pellix.first-login.plist", "program_arguments": "/bin/sh -c #"},
        {"label": "com.velmor.pellix.first-login", "program_arguments": "/tmp/evil",
         "path": "/Users/bob/Library/LaunchAgents/com.velmor.pellix.first-login.plist"},
        {"label": "com.velmor.pellixer", "path": "/Library/LaunchAgents/com.velmor.pellixer.plist"}],
    "apps": [{"path": APPLICATION, "bundle_identifier": "com.velmor.pellix.app", "bundle_short_version": "1.0.0"},
             {"path": "/Applications/Other.app", "bundle_identifier": "other"}],
    "plist": [{"path": f"{APPLICATION}/Contents/Info.plist", "key": "VelmorSiteURL", "value": "https://your.site"},
              {"path": f"{APPLICATION}/Contents/Info.plist", "key": "CFBundleName", "value": "Velmor Pellix"}],
    "hash": [{"path": f"/Users/ann/{SERVICE}", "sha256": "new"}, {"path": f"/Users/bob/{SERVICE}", "sha256": "old"},
             {"path": f"{APPLICATION}/Contents/Resources/velmor-guard", "sha256": "new"}],
    "signature": [{"path": APPLICATION, "signed": 1, "identifier": "com.velmor.pellix.app", "cdhash": "c0ffee",
                   "team_identifier": "ABCDE12345"}, {"path": "/bin/ls", "signed": 1}],
    "listening_ports": [{"pid": 7, "port": "8787", "protocol": 6, "address": "127.0.0.1"},
                        {"pid": 8, "port": "8787", "protocol": 17}, {"pid": 9, "port": "80", "protocol": 6}],
    "processes": [{"pid": 7, "uid": 501, "path": f"/Users/ann/{SERVICE}"},
                  {"pid": 8, "uid": 502, "path": PROGRAM, "start_time": 42}, {"pid": 9, "uid": 0, "path": "/x"}],
    "managed_policies": [{"domain": "com.velmor.pellix.app", "name": "port", "value": "8787", "username": ""},
                         {"domain": "other", "name": "port", "value": "1"}],
    "package_receipts": [{"package_id": "com.velmor.pellix.pkg", "version": "1.0.0", "install_time": 5.0},
                         {"package_id": "other", "version": "2"}],
}
ANSWERS = {
    "jobs": [("com.velmor.pellix", "/Users/ann/Library/LaunchAgents/com.velmor.pellix.plist",
              f"/Users/ann/{SERVICE} run --port 8787", "1", "1", "Background"),
             ("com.velmor.pellix.menubar", "/Users/ann/Library/LaunchAgents/com.velmor.pellix.menubar.plist",
              PROGRAM, "1", "0", "Interactive"),
             ("com.velmor.pellix.menubar", "/Users/bob/Library/LaunchAgents/com.velmor.pellix.menubar.plist",
              "/Volumes/Velmor Pellix/Velmor Pellix.app/x", None, None, None),
             ("com.velmor.pellix.first-login", "/Library/LaunchAgents/com.velmor.pellix.first-login.plist",
              "/bin/sh -c #", "1", None, None),
             ("com.velmor.pellix.first-login", "/Users/bob/Library/LaunchAgents/com.velmor.pellix.first-login.plist",
              "/tmp/evil", None, None, None)],
    "strays": [("bob", "/Volumes/Velmor Pellix/Velmor Pellix.app/x")],
    "impostors": [("/Users/bob/Library/LaunchAgents/com.velmor.pellix.first-login.plist", "/tmp/evil")],
    "version": [("1.0.0", "https://your.site")],
    "services": [("ann", "new", 1), ("bob", "old", 0)],
    "signature": [(1, "com.velmor.pellix.app", "ABCDE12345", "c0ffee")],
    "port": [(7, "ann", f"/Users/ann/{SERVICE}", "127.0.0.1")],
    "running": [("bob", 42)],
    "settings": [("port", "8787", "")],
    "receipt": [("1.0.0", 5.0)],
}


@pytest.fixture
def osquery():
    database = sqlite3.connect(":memory:")
    for table, columns in COLUMNS.items():
        typed = [f"{name} {'BIGINT' if name in NUMBERS else 'TEXT'}" for name in columns.split()]
        database.execute(f"CREATE TABLE {table} ({', '.join(typed)})")
        if table in REQUIRED:
            database.execute(f"CREATE INDEX required_{table} ON {table} ({REQUIRED[table]})")
        for row in CONTENT[table]:
            database.execute(f"INSERT INTO {table} ({', '.join(row)}) VALUES ({', '.join('?' * len(row))})",
                             list(row.values()))
    return database


def query(name):
    [found] = blocks("sql", name)
    return found


def test_every_query_is_checked():
    assert re.findall(r"^```sql (\w+)$", DOCUMENT, re.MULTILINE) == list(ANSWERS)


@pytest.mark.parametrize("name", ANSWERS)
def test_a_query_gives_what_it_promises(osquery, name):
    assert sorted(osquery.execute(query(name)).fetchall()) == sorted(ANSWERS[name])


@pytest.mark.parametrize("name", ANSWERS)
def test_tables_that_read_files_are_told_which(osquery, name):
    plan = [row[3] for row in osquery.execute("EXPLAIN QUERY PLAN " + query(name))]
    for table in REQUIRED:
        used = len(re.findall(rf"(?:FROM|JOIN) {table}\b", query(name)))
        assert sum(f"INDEX required_{table} (path=?)" in step for step in plan) == used, plan


def test_a_user_whose_service_runs_but_whose_bundle_is_gone_is_still_listed(osquery):
    osquery.execute("DELETE FROM hash WHERE path LIKE '/Applications/%'")
    assert sorted(osquery.execute(query("services"))) == [("ann", "new", None), ("bob", "old", None)]


# Costs.

def test_the_costs_follow_from_the_assumptions():
    assumptions, costs = tables("What ten thousand Macs cost")
    macs, hours, poll, minutes, call, package, rollout, line, inventories = [
        float(row[1]) for row in assumptions]
    calls = macs * hours * 60 / minutes
    assert [row[1] for row in costs] == [
        f"{macs * hours * 3600 / poll:,.0f} a day, none of them on the network",
        f"{macs / (minutes * 60):.1f} a second",
        f"{calls:,.0f}, with {calls * call / 1e6:.1f} GB",
        f"{macs * package / 1e3:.1f} GB, {macs * package * 8 / (rollout * 3600):.1f} Mbit/s while it is rolled out",
        f"{macs / 100 * package / 1e3:.1f} GB from outside",
        f"{macs * line * inventories / 1e6:.1f} MB"]
    assert f"the site\nanswers {macs / 60:.1f} requests a second" in DOCUMENT


def test_the_poll_interval_is_that_of_the_application():
    [interval] = re.findall(r"pollInterval = ([\d.]+);", (ROOT / "app/AppDelegate.cpp").read_text())
    [assumed] = [row[1] for row in tables("What ten thousand Macs cost")[0] if row[0] == "seconds between polls"]
    assert float(assumed) == float(interval)


def test_the_release_has_the_values_that_are_pointed_at():
    program = (ROOT / "packaging/macos/make_release").read_text()
    for name in re.findall(r"`(?:application|service)\.(\w+)`", DOCUMENT):
        assert f'"{name}"' in program
    assert json.dumps("code_hashes") in program
