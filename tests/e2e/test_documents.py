"""What documents and texts promise, held against the code."""
import re

from server import ROOT

TESTS = ROOT / "tests"


def named_tests():
    """(promise, place, test) for each test that docs/security.md names; test may be empty."""
    found = []
    for line in (ROOT / "docs" / "security.md").read_text(encoding="utf-8").splitlines():
        if not line.startswith("| ") or line.startswith("| promise") or line.count("|") != 3:
            continue
        promise, cell = line.strip("| ").split(" | ")
        place, names = "", re.findall(r"`([^`]+)`", cell)
        assert names, f"no test for: {promise}"
        for name in names:
            own, _, test = name.partition("::")
            place = own or place
            found.append((promise, place, test))
    return found


def has_test(place, test):
    if place == "host":
        group, _, case = test.partition(".")
        wanted = rf"TEST(?:_F|_P)?\({group}, {case or '[A-Z]'}"
        return any(re.search(wanted, file.read_text()) for file in (TESTS / "host").glob("*_test.cpp"))
    file = ROOT / place if place.startswith("tests/") else TESTS / place
    if not file.is_file():
        return False
    return not test or re.search(rf"^def {test}\(", file.read_text(), re.MULTILINE) is not None


def test_every_promise_about_security_names_a_test_that_exists():
    named = named_tests()
    assert len({promise for promise, _, _ in named}) > 20
    missing = [(place, test) for _, place, test in named if not has_test(place, test)]
    assert not missing
    assert not has_test("host", "SessionsTest.Nothing") and not has_test("e2e/test_login.py", "test_none")


def test_every_key_of_the_configuration_is_in_its_page():
    code = (ROOT / "platform" / "core" / "config_toml.cpp").read_text()
    known = {key for keys in re.findall(r"\.Known\(\{(.*?)\}\)", code, re.DOTALL) for key in re.findall(r'"(\w+)"', keys)}
    page = (ROOT / "packaging" / "man" / "fennox.toml.5").read_text()
    told = {word for line in re.findall(r"^\.BR? (.*)", page, re.MULTILINE) for word in re.findall(r"\b[a-z]\w+", line)}
    assert len(known) > 30 and not known - told and told - known <= {"fennoxd", "check", "config"}


def codes_of_the_code():
    header = (ROOT / "platform" / "support" / "include" / "support" / "errors.h").read_text()
    enum = re.search(r"enum WEBFMERR : int \{(.*?)\};", header, re.DOTALL)[1]
    return {int(number) for number in re.findall(r"WEBFM_\w+ = (\d+),", enum)} - {0}


def test_every_code_has_words_in_each_language_and_a_line_in_the_document(server):
    codes = codes_of_the_code()
    assert len(codes) > 30
    document = (ROOT / "docs" / "api.md").read_text(encoding="utf-8")
    told = {int(number): words for number, words in
            re.findall(r"^\| (\d+) \| `\w+` \| (.+) \|$", document, re.MULTILINE)}
    assert told.keys() == codes
    texts = {language: server.client.host("texts", language=language).data["errors"]
             for language in ("enu", "ger")}
    for language, errors in texts.items():
        words = [errors.get(str(code), "") for code in codes]
        assert all(words) and len(set(words)) == len(codes), language
        assert errors["-1"] not in words
    assert {code: texts["enu"][str(code)] for code in codes} == told
    assert not [code for code in codes if texts["enu"][str(code)] == texts["ger"][str(code)]]
