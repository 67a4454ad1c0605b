// The kx command as its users run it: lines for a shell, in a directory of their own, and what they
// print. cc1541, cbmconvert and jq are the witnesses.
#include "tests/support/kx_shell.h"

namespace kx::test {

namespace {

using testing::HasSubstr;

/// A line for the shell, and what it is to print: all of it.
struct Line {
    const char* command;
    int status;
    std::string out, err;
};

struct KxTest : KxShell {
    /// Each line after the one before it, in the same directory.
    void check(const std::vector<Line>& lines) const {
        for (const Line& line : lines) {
            SCOPED_TRACE(line.command);
            const Outcome outcome = shell(line.command);
            EXPECT_EQ(outcome.status, line.status);
            EXPECT_EQ(outcome.out, line.out);
            EXPECT_EQ(outcome.err, line.err);
        }
    }
};

TEST_F(KxTest, WrongCommandLinesSayWhatIsMeant) {
    const std::string usage =
        "hint: usage: kx ls IMAGE [PATTERN...] [-i] [-l] [-1] [--map] [--all]\n";
    check({
        {"kx --version", 0, "kx 0.2\n", ""},
        {"kx lss", 2, "",
         "kx: error: there is no command 'lss'; did you mean 'ls'?\nhint: kx --help lists them\n"},
        {"kx lss --json 2>/dev/null | jq .ok; kx --version --json", 0, "false\nkx 0.2\n", ""},
        {"kx ls", 2, "", "kx: error: IMAGE is missing\n" + usage},
        {"kx ls --lnog a", 2, "",
         "kx: error: unknown option '--lnog'; did you mean '--long'?\n" + usage},
        {"kx -- ls -- -a", 1, "", "kx: error: -a: No such file or directory\n"},
        {"printf abc | kx dump --at 010", 2, "",
         "kx: error: --at: '010' is ambiguous: write 8, 10 or 0x10\n"},
        {"printf abc | kx dump --range 3", 1, "", "kx: error: standard input ends before 3\n"},
        {"kx ls no.d64 --json | jq -c .", 0,
         R"({"kx":1,"command":"ls","ok":false,"error":{"code":"not-found","text":)"
         R"("no.d64: No such file or directory","hint":""}})"
         "\n",
         "kx: error: no.d64: No such file or directory\n"},
        {"kx ls \"$(printf 'a\\033[31m')\"", 1, "",
         "kx: error: a\\x1b[31m: No such file or directory\n"},
    });
    EXPECT_EQ(shell("kx").status, 2);
    EXPECT_THAT(shell("kx").err, HasSubstr("\n  ls        directory of a disc image\n"));
}

TEST_F(KxTest, NoEscapeReachesAPipeOrAPlainTerminal) {
    check({
        {"kx -q mkfs d.d64; kx ls d.d64 | grep -c '\033'", 1, "0\n", ""},
        {"TERM=xterm script -qc 'kx ls d.d64' /dev/null | grep -c '\033'", 0, "1\n", ""},
        {"NO_COLOR=1 script -qc 'kx ls d.d64' /dev/null | grep -c '\033'", 1, "0\n", ""},
        {"TERM=dumb script -qc 'kx ls d.d64' /dev/null | grep -c '\033'", 1, "0\n", ""},
    });
}

TEST_F(KxTest, DiscsKeepWhatIsPutOnThem) {
    dir.write("hello.prg", std::string("\x01\x08hello", 7));
    dir.write("long.seq", std::string(1000, 's'));
    dir.write("big.prg", std::string(200000, 'b'));
    const std::string listing = "0 \"MY DISK         \" AB 2A\n"
                                "1    \"HELLO\"            PRG\n"
                                "4    \"LONG\"             SEQ\n"
                                "659 BLOCKS FREE.\n";
    check({
        {"kx mkfs d.d64 -N 'MY DISK' -I AB hello.prg long.seq", 0, "",
         "d.d64: HELLO  1 block\nd.d64: LONG  4 blocks\nd.d64: 659 blocks free\n"},
        {"kx ls d.d64", 0, listing, ""},
        {"(ulimit -f 8; kx mkfs f.d64); ls -A | grep f.d64", 1, "",
         "kx: error: f.d64: File too large; nothing was written\n"},
        // All or nothing, whatever fails.
        {"cp long.seq new.seq; kx put d.d64 new.seq big.prg", 1, "",
         "kx: error: d.d64: 792 blocks needed, 659 free; nothing was written\n"},
        {"kx put d.d64 big.prg -N HELLO -f", 1, "",
         "kx: error: d.d64: 788 blocks needed, 660 free; nothing was written\n"},
        {"kx mkfs -q t.d64; cp hello.prg up; KXPATH=$base kx put -q --toolkit-rules t.d64 up; "
         "kx put --toolkit-rules t.d64 - -N X; kx get --toolkit-rules t.d64 'u*'",
         0, "", "kx: error: -: no regular file, which --toolkit-rules needs\nUP.prg  254 bytes\n"},
        {"kx rm d.d64 LONG GONE", 1, "", "kx: error: d.d64: there is no file 'GONE'\n"},
        {"kx put -n d.d64 new.seq", 0, "", "d.d64: NEW  4 blocks\nnothing was changed (dry run)\n"},
        {"kx ls d.d64", 0, listing, ""},
        // Names of any codes.
        {"kx put d.d64 -q --lock hello.prg -N 'odd#a0#01#2a'", 0, "", ""},
        {"kx ls -1 d.d64", 0, "HELLO\nLONG\nODD#a0#01#2a\n", ""},
        {"kx ls d.d64 odd | sed -n 2p", 0, "1    \"ODD\".*            PRG<\n", ""},
        {"kx ls d.d64 --json | jq -c '.entries[2] | [.name_hex, .locked, .type]'", 0,
         "[\"4f4444a0012a\",true,\"prg\"]\n", ""},
        {"kx get d.d64 'odd#A0#01#2a' -o - | cmp - hello.prg", 0, "", ""},
        {"kx rm d.d64 'o*'", 1, "",
         "kx: error: d.d64: 'ODD .*' is locked\nhint: -f takes it, too\n"},
        {"kx rm d.d64 'o*' -f", 0, "", "d.d64: ODD .* scratched, 1 block free\n"},
        {"kx mv d.d64 hello WORLD", 0, "", "d.d64: HELLO is now WORLD\n"},
        {"kx mv d.d64 --label NEW,ZZ", 0, "", "d.d64: the disc is now \"NEW             \" ZZ\n"},
        {"kx put e.d64 --create d.d64:w*d", 0, "", "e.d64: WORLD  1 block\n"},
        {"kx get e.d64 -C . -l", 0, "", "world.prg  7 bytes\n"},
        {"kx get e.d64 -l", 1, "", "kx: error: world.prg exists\nhint: -f replaces it\n"},
        {"cmp world.prg hello.prg && kx check d.d64 e.d64", 0, "d.d64: ok\ne.d64: ok\n", ""},
    });
}

TEST_F(KxTest, OtherDiscToolsReadWhatKxWritesAndTheOtherWayRound) {
    check({
        {"seq 900 >data.prg; : >empty.prg; kx -q mkfs kx.d64 data.prg empty.prg", 0, "", ""},
        {"mkdir o; cd o; cbmconvert -n -d ../kx.d64 2>/dev/null; cmp data* ../data.prg", 0, "", ""},
        {"cc1541 kx.d64 | grep -c '\"data\" *prg'", 0, "1\n", ""},
        {"cc1541 -q -n OTHER -f data -w data.prg cc.d64 >/dev/null", 0, "", ""},
        {"kx check cc.d64 && kx get cc.d64 DATA -o - | cmp - data.prg", 0, "cc.d64: ok\n", ""},
    });
}

TEST_F(KxTest, DamageIsFoundAndRepaired) {
    dir.write("a.prg", std::string(600, 'a'));
    shell("kx mkfs d.d64 a.prg");
    std::string image = read_file(dir.file("d.d64"));
    image[0x16500 + 4 + 16 * 4 + 1] = '\xFF'; // the map's sectors 0 to 7 of track 17 are free
    dir.write("d.d64", image);
    check({
        {"kx check d.d64 | tail -1", 0, "d.d64: 2 problems\n", ""},
        {"kx check -n --repair d.d64 >/dev/null; kx check d.d64 >/dev/null", 1, "",
         "nothing was changed (dry run)\n"},
        {"kx check --repair d.d64 >/dev/null; kx check d.d64", 0, "d.d64: ok\n", ""},
        // A closed del entry without blocks is a line of the listing, and no file.
        {"printf '\\200' | dd of=d.d64 bs=1 seek=91682 conv=notrunc status=none; kx get d.d64 -f",
         0, "", "A.prg  600 bytes\n"},
    });
}

TEST_F(KxTest, AKilledPutLeavesTheOldImage) {
    // The pause is where it strikes, not what is waited for: both ends are right.
    check({{"seq 16000 >a.prg; kx -q mkfs d.d64 a.prg; rev a.prg >b.prg; cp d.d64 want.d64; "
            "kx put -q want.d64 -f b.prg -N A; for i in 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9; "
            "do cp d.d64 x.d64; kx put -q x.d64 -f b.prg -N A & p=$!; sleep 0.00$i; kill -9 $p; "
            "wait $p; cmp -s x.d64 d.d64 || cmp x.d64 want.d64; done 2>/dev/null",
            0, "", ""}});
}

TEST_F(KxTest, FilesAreDumpedPatchedAndNamedWithoutAnySetUp) {
    dir.write("a.prg", std::string("\x01\x08\xEE\x20\xD0\x4C\xE2\xFC", 8));
    dir.write("s.lbl", "al 00ffd2 .CHROUT\nal C:0801 .start\n");
    check({
        {"printf 'hello world more.\\001' | kx dump --at '$c000' --json | jq -r .hex", 0,
         "68656c6c6f20776f726c64206d6f72652e01\n", ""},
        {"kx -q mkfs d.d64 -N ABC; kx dump d.d64 --block 18/0 | sed -n 10p", 0,
         "00016590:  41 42 43 a0 a0 a0 a0 a0 a0 a0 a0 a0 a0 a0 a0 a0  ;ABC.............\n", ""},
        {"{ yes | head -c 300000 | kx dump; echo $? >s; } | head -1; cat s", 0,
         "00000000:  79 0a 79 0a 79 0a 79 0a 79 0a 79 0a 79 0a 79 0a  ;y.y.y.y.y.y.y.y.\n141\n",
         ""},
        {"KXPATH=$base kx -t c64 --json -qn read 1:2 | jq -c '[.start,.bytes]'", 0, "[1,2]\n", ""},
        {"kx symbols s.lbl --at CHROUT+3", 0, "$FFD5 CHROUT+3\n", ""},
        {"kx patch a.prg --patches $base/patches/c64.ini --name no_flicker -i", 0,
         "no colour marks: 1 place: $0801\n", "a.prg: patched; what it was is in a.prg.orig\n"},
        {"cp a.prg.orig b.prg; cp s.lbl b.prg.orig; "
         "kx patch b.prg --patches $base/patches/c64.ini --name no_flicker -o s.lbl",
         1, "no colour marks: 1 place: $0801\n", "kx: error: s.lbl exists\nhint: -f replaces it\n"},
        {"kx patch b.prg --patches $base/patches/c64.ini --name no_flicker -i", 1,
         "no colour marks: 1 place: $0801\n",
         "kx: error: b.prg.orig exists\nhint: -f replaces it\n"},
        // A closed standard error is not taken for the line.
        {"KXPATH=$base kx fake --log -- sh -c 'kx send $base/examples/hello.prg 2>&-; kx verify "
         "$base/examples/hello.prg' 2>&1 | cut -c 11-15",
         0, "write\nread \nread \n", ""},
        {"kx dump a.prg; kx dump a.prg.orig", 0,
         "00000000:  01 08 ee 3f d0 4c e2 fc  ;...?.L..\n"
         "00000000:  01 08 ee 20 d0 4c e2 fc  ;... .L..\n",
         ""},
        // The example that is shipped is what its source assembles to.
        {"cp $base/examples/hello.* .; cl65 -t none -o x.prg hello.s; cmp x.prg hello.prg", 0, "",
         ""},
        {"truncate -s 65M big; kx view big | wc -c; rm big", 0, "68157440\n", ""},
    });
}

TEST_F(KxTest, LintFindsWhatTheLoaderSwallows) {
    const std::string good = read_file(std::string(KX_SOURCE_DIR) + "/base/config/c64.ini");
    struct Row {
        const char *from, *to, *finding;
    };
    const Row rows[] = {
        {"name=/dev", "name =/dev",
         "error: blank before '=': the key is 'name ' and [port] name is empty [blank]"},
        {"0x0002,0x9fff", "0x0000,0x9fff",
         "error: [memory] n1: $0000-$0001 belongs to n0, which comes first [region]"},
        {"[config]", ";",
         "error: no section [config]: kxsetup ends with this file in its directory [section]"},
        {"baud=38400\n", "",
         "error: no baud rate in [port]; 9600, 19200, 38400, 57600 or 115200 [baud]"},
        {"num=11", "", "error: [memory] has no num: none of its items is used [count]"},
        {"num=11", "num=11\n[patches_auto]\nn0=prt",
         "error: [patches_auto] n0: there is no section [prt], did you mean 'port'? [section]"},
        {"addr=0", "addr",
         "error: no '=' in this line: what follows up to the next '=' belongs to the key 'addr' "
         "[runon]"},
    };
    for (const Row& row : rows) {
        std::string text = good;
        const std::size_t at = text.find(row.from);
        ASSERT_NE(at, std::string::npos) << row.from;
        dir.write("config/mine.ini", text.replace(at, std::string(row.from).size(), row.to));
        const Outcome outcome = shell("kx lint --base $base config/mine.ini");
        EXPECT_THAT(outcome.out, HasSubstr(row.finding)) << row.to;
        EXPECT_EQ(outcome.status, std::string(row.finding).starts_with("error") ? 1 : 0) << row.to;
    }
    check({
        {"kx lint --base $base -W error --no-rule region", 0, "", ""},
        {"mkdir -p b/config/a.ini; echo >b/config/b.ini; : >b/kx.ini; kx lint --base b | grep -c "
         "b.ini",
         0, "1\n", "kx: error: b/config/a.ini: Is a directory\n2 files with errors, 0 warnings\n"},
    });
}

TEST_F(KxTest, CompletionKnowsWhatFitsAtAPlace) {
    dir.write("a.prg", "x");
    shell("kx mkfs d.d64 && kx put d.d64 a.prg -N 'one $(x)' && kx put d.d64 a.prg -N TWO");
    const std::string names = "ONE $(X)\tPRG\nTWO\tPRG\n";
    check({
        {"kx complete kx get d.d64 ''", 0, names, ""},
        {"HOME=. kx complete kx -vp /dev/ttyS0 rm -f '~/d.d64' TWO O", 0, names, ""},
        {"kx complete kx --base $base -t '' | grep -e col_ -e c64_s", 0, "c64_scpu\nc64_sim\n", ""},
    });
}

} // namespace

} // namespace kx::test
