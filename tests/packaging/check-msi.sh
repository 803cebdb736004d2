#!/bin/sh
# The installer contains what was built, byte for byte, puts it where Windows looks for it, and registers, keeps and removes what
# it should.
# Usage: tests/packaging/check-msi.sh PACKAGE.msi PAYLOAD VERSION
set -eu
msi=$(realpath "$1")
payload=$(realpath "$2")
version=$3
top=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "installer: $*" >&2
    failed=1
}
# Rows of a table, without its three head lines.
table() { msiinfo export "$msi" "$1" | tr -d '\r' | sed 1,3d; }
column() { table "$1" | awk -F '\t' -v key="$2" -v n="$3" '$1 == key {print $n}'; }
expect() { # expect WHAT WANTED FOUND
    [ "$2" = "$3" ] || fail "$1 is '$3', not '$2'"
}
sequence() { column InstallExecuteSequence "$1" 3; }
in_order() { # in_order ACTION...
    last=0
    for action in "$@"; do
        at=$(sequence "$action")
        [ "${at:-0}" -gt "$last" ] || fail "$action is at '$at', not after $last"
        last=${at:-$last}
    done
}

# What it is. The upgrade code never changes: an upgrade uses it to find what it replaces.
expect "the upgrade code" '{55AADE55-D09C-5FF2-813B-F5EF9D09740B}' "$(column Property UpgradeCode 2)"
expect "the version" "$version" "$(column Property ProductVersion 2)"
expect "the scope" 1 "$(column Property ALLUSERS 2)"
expect "the platform" 'x64;1033' "$(msiinfo export "$msi" _SummaryInformation | tr -d '\r' | awk -F '\t' '$1 == 7 {print $2}')"
table Upgrade | grep -q "^{55AADE55-D09C-5FF2-813B-F5EF9D09740B}	*$version	*1	.*WIX_UPGRADE_DETECTED" ||
    fail "older versions are not replaced"
table LaunchCondition | grep -q '^VersionNT64' || fail "32-bit Windows is not refused"
table LaunchCondition | grep -q '^Installed OR MACHINEARCHITECTURE <> "ARM64"	.*x64' || fail "ARM64 is not refused"
table LaunchCondition | grep -q '^NOT WIX_DOWNGRADE_DETECTED' || fail "a downgrade is not refused"

# Where each file goes: component, its folder, 256 for the 64-bit ones.
while read -r file folder attributes; do
    component=$(column File "$file" 2)
    expect "$file's folder" "$folder" "$(column Component "$component" 3)"
    expect "$file's component" "$attributes" "$(column Component "$component" 4)"
done <<END
Module64.dll System64Folder 256
Module32.dll SystemFolder 0
Kelvaroctl64.exe INSTALLDIR 256
KelvaroRegister.exe INSTALLDIR 256
Kelvaroctl32.exe X86Folder 256
prove.ps1 INSTALLDIR 256
NOTICES.txt INSTALLDIR 256
Kelvaro.admx PolicyFolder 256
Kelvaro.adml PolicyTextFolder 256
END
# Without the version that the file itself has it would not be replaced by a later one.
for file in Module64.dll Module32.dll Kelvaroctl64.exe Kelvaroctl32.exe KelvaroRegister.exe; do
    expect "$file's version" "$version.0" "$(column File $file 5)"
done
for file in "$payload"/x*/*; do
    objdump -h "$file" | grep -q '\.rsrc' || fail "$file has no version resource"
done
unlisted=$(table Component | cut -f1 | sort | comm -3 - "$(table FeatureComponents | cut -f2 | sort >"$work/listed" && echo "$work/listed")")
[ -z "$unlisted" ] || fail "components and features differ: $unlisted"
doubled=$(table Component | cut -f2 | grep . | sort | uniq -d)
[ -z "$doubled" ] || fail "components share the id $doubled"

# What it carries: the cabinet's files have the names of the File table's rows.
mkdir "$work/files"
(cd "$work" && msiinfo extract "$msi" kelvaro.cab >kelvaro.cab && gcab -x -C files kelvaro.cab >/dev/null)
compare() { # compare BUILT ROW
    cmp -s "$payload/$1" "$work/files/$2" || fail "$2 is not the built $1"
    expect "$2's size" "$(stat -c %s "$payload/$1")" "$(column File "$2" 4)"
}
compare x64/kelvaro.dll Module64.dll
compare x86/kelvaro.dll Module32.dll
compare x64/kelvaroctl.exe Kelvaroctl64.exe
compare x86/kelvaroctl.exe Kelvaroctl32.exe
compare x64/kelvaro-register.exe KelvaroRegister.exe
compare prove.ps1 prove.ps1
compare NOTICES.txt NOTICES.txt
compare policy/Kelvaro.admx Kelvaro.admx
compare policy/en-US/Kelvaro.adml Kelvaro.adml
for document in "$payload"/docs/*; do
    compare "docs/${document##*/}" "doc.${document##*/}"
done
for library in json-c CLI11 nlohmann-json mingw-w64; do
    grep -q "^Upstream-Name: $library\$" "$payload/NOTICES.txt" || fail "the notices lack $library"
done
grep -q "^json-c, version $(sed -n 's/^version=//p' "$top/tools/build-json-c.sh")," "$payload/NOTICES.txt" || fail "the notices name another json-c"
expect "the number of files" "$(find "$payload" -type f | wc -l)" "$(table File | wc -l)"
for file in "$payload"/x*/*; do
    objdump -p "$file" | grep -i '^Time/Date' | grep -q '1970' || fail "$file carries the time of its build"
done

# Settings: every one that the tool knows and an administrator sets, in both views, written once and never removed.
known=$(sed -n 's/^ *{"\([A-Za-z]*\)", SettingKind::\(Text\|Number\|Secret\),.*/\1/p' "$top/kelvaroctl/setting_table.cpp" |
    grep -v '^ClientCertID$')
[ -n "$known" ] || fail "the tool's settings were not found"
for setting in $known; do
    property=$(echo "$setting" | tr a-z A-Z)
    value="[$property]"
    grep -q "{\"$setting\", SettingKind::Number" "$top/kelvaroctl/setting_table.cpp" && value="#$value"
    for view in '64 260 System64Folder' '32 4 SystemFolder'; do
        # shellcheck disable=SC2086
        set -- $view
        row=$(table Registry | awk -F '\t' -v name="$setting" -v component="$setting$1" '$4 == name && $6 == component')
        expect "$setting in the $1-bit view" "$setting$1	2	Software\\Zandrel\\Kelvaro	$setting	$value	$setting$1" "$row"
        expect "$setting$1's component" "$setting$1		$3	$2	$property AND NOT Installed	$setting$1" \
            "$(table Component | grep "^$setting$1	")"
    done
    column Property SecureCustomProperties 2 | tr ';' '\n' | grep -qx "$property" || fail "$property does not reach the installation"
done
expect "the events' source" 'SYSTEM\CurrentControlSet\Services\EventLog\Application\Kelvaro EventMessageFile #%[System64Folder]kelvaro.dll' \
    "$(table Registry | awk -F '\t' '$4 == "EventMessageFile" {print $3, $4, $5}')"
column Property MsiHiddenProperties 2 | tr ';' '\n' | grep -qx CLIENTSECRET || fail "the secret is written to the log"

# What it runs. 18: a program that it installed, 2: one in the package; 1024 in the script, 2048 as the system, 256 in the rollback,
# 512 when all is done, 64 whatever the result. Nothing that takes a property runs in a repair.
while IFS='|' read -r action type source arguments condition; do
    expect "$action" "$type $source $arguments" "$(column CustomAction "$action" 2) $(column CustomAction "$action" 3) $(column CustomAction "$action" 4)"
    expect "when $action runs" "$condition" "$(column InstallExecuteSequence "$action" 2)"
    echo "$action"
done >"$work/actions" <<'END'
UndoUnregister|3410|KelvaroRegister.exe|install|REMOVE="ALL"
UnregisterProvider|3154|KelvaroRegister.exe|uninstall|REMOVE="ALL"
RestoreSettings|3394|Registrar|restore-settings|NOT REMOVE
SaveSettings|3090|KelvaroRegister.exe|save-settings|NOT REMOVE AND NOT RollbackDisabled
PrepareSettings|3090|KelvaroRegister.exe|prepare|NOT REMOVE
CheckAccess|3090|KelvaroRegister.exe|check-access|CLIENTSECRET AND NOT Installed
UndoRegister|3410|KelvaroRegister.exe|uninstall|NOT Installed AND NOT NOREGISTER
RegisterProvider|3090|KelvaroRegister.exe|install|NOT REMOVE AND NOT NOREGISTER
ImportSettings64|3090|Kelvaroctl64.exe|config import -- "[SETTINGSFILE]"|SETTINGSFILE AND NOT Installed
ImportSettings32|3090|Kelvaroctl32.exe|config import -- "[SETTINGSFILE]"|SETTINGSFILE AND NOT Installed
ProtectSecret64|3154|Kelvaroctl64.exe|provider show|CLIENTSECRET AND NOT Installed
ProtectSecret32|3154|Kelvaroctl32.exe|provider show|CLIENTSECRET AND NOT Installed
CheckSecret|3090|KelvaroRegister.exe|check-secret|(CLIENTSECRET OR SETTINGSFILE) AND NOT Installed
ForgetSettings|3666|KelvaroRegister.exe|forget-settings|NOT REMOVE
END
expect "what it runs" "$(sort "$work/actions" | tr '\n' ' ')" "$(table CustomAction | cut -f1 | grep -vx PreventDowngrading | sort | tr '\n' ' ')"
in_order InstallInitialize RemoveExistingProducts UndoUnregister UnregisterProvider RemoveFiles InstallFiles \
    RestoreSettings SaveSettings PrepareSettings CheckAccess WriteRegistryValues UndoRegister RegisterProvider ImportSettings64 \
    ImportSettings32 ProtectSecret64 ProtectSecret32 CheckSecret ForgetSettings InstallFinalize
[ "$(sequence AppSearch)" -lt "$(sequence LaunchConditions)" ] || fail "the processor is read too late"
msiinfo extract "$msi" Binary.Registrar | cmp -s - "$payload/x64/kelvaro-register.exe" || fail "the package has another kelvaro-register than the one built"

[ "$failed" = 0 ] && echo "installer: files, registry, actions and their order are as expected"
exit "$failed"
