#!/bin/sh
# Builds the Windows installer from a payload, reproducibly.
# Usage: packaging/windows/build-msi.sh VERSION PAYLOAD OUTPUT.msi
#   PAYLOAD: x64/ and x86/ with the binaries, policy/, docs/, prove.ps1, NOTICES.txt. SOURCE_DATE_EPOCH: the time of every file.
set -eu
version=$1
payload=$(cd "$2" && pwd)
output=$3
: "${SOURCE_DATE_EPOCH:?}"
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C TZ=UTC WORK="$work"

# A GUID computed from a name, like a version 5 UUID.
guid() {
    printf 'kelvaro.zandrel/%s' "$1" | sha1sum |
        sed -E 's/^(.{8})(.{4}).(.{3}).(.{3})(.{12}).*/\1-\2-5\3-8\4-\5/' | tr a-f A-F
}

settings() { # settings: the rows of the table
    grep -v '^#' "$here/settings.table"
}

# One component for each setting and registry view, so that each is set only when its property is given.
setting_components() { # setting_components 64|32
    win64=yes
    [ "$1" = 64 ] || win64=no
    settings | while read -r value type property; do
        cat <<END
<Component Id="$value$1" Guid="$(guid "$value$1")" Win64="$win64">
  <RegistryValue Id="$value$1" Root="HKLM" Key="Software\\Zandrel\\Kelvaro" Name="$value" Type="$type" Value="[$property]"
                 KeyPath="yes"/>
</Component>
END
    done
}

doc_components() {
    (cd "$payload/docs" && ls) | while read -r name; do
        cat <<END
<Component Id="doc.$name" Guid="$(guid "component/doc/$name")" Win64="yes">
  <File Id="doc.$name" Name="$name" Source="payload/docs/$name" KeyPath="yes"/>
</Component>
END
    done
}

component_refs() {
    for file in "$here/kelvaro.wxs" "$work/settings64" "$work/settings32" "$work/docs"; do
        sed -n 's/.*<Component Id="\([^"]*\)".*/<ComponentRef Id="\1"\/>/p' "$file"
    done
}

# What wixl can't express.
finishing_queries() {
    settings | while read -r value type property; do
        # A component without an id is written once and then left alone by uninstall, upgrade and repair, which would
        # write an empty property.
        for bits in 64 32; do
            echo "UPDATE \`Component\` SET \`ComponentId\`='', \`Condition\`='$property AND NOT Installed'" \
                "WHERE \`Component\`='$value$bits'"
        done
    done
    # The event source, and where the event viewer finds its messages.
    source='SYSTEM\CurrentControlSet\Services\EventLog\Application\Kelvaro'
    for row in 'EventMessageFile #%[System64Folder]kelvaro.dll' 'TypesSupported #7'; do
        echo "INSERT INTO \`Registry\` (\`Registry\`, \`Root\`, \`Key\`, \`Name\`, \`Value\`, \`Component_\`)" \
            "VALUES ('Event${row%% *}', 2, '$source', '${row%% *}', '${row#* }', 'Module64')"
    done
    secure=$(settings | while read -r value type property; do printf '%s;' "$property"; done)
    echo "UPDATE \`Property\` SET \`Value\`='${secure}NOREGISTER;SETTINGSFILE;WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED'" \
        "WHERE \`Property\`='SecureCustomProperties'"
    echo "INSERT INTO \`Property\` (\`Property\`, \`Value\`) VALUES ('MsiHiddenProperties', 'CLIENTSECRET')"
    echo "INSERT INTO \`LaunchCondition\` (\`Condition\`, \`Description\`)" \
        "VALUES ('VersionNT64', 'This package is for 64-bit Windows.')"
    echo "INSERT INTO \`LaunchCondition\` (\`Condition\`, \`Description\`)" \
        "VALUES ('Installed OR MACHINEARCHITECTURE <> \"ARM64\"', 'This package is for x64 processors. It has no module for ARM64.')"
    # 18: an installed program; 2: a program inside the package; 64: its result is ignored; 256 and 1024: in the rollback;
    # 512 and 1024: on commit; 2048: as the system.
    for action in 'UndoUnregister 3410' 'UndoRegister 3410' 'RestoreSettings 3394' 'ForgetSettings 3666'; do
        echo "UPDATE \`CustomAction\` SET \`Type\`=${action#* } WHERE \`Action\`='${action% *}'"
    done
    echo "UPDATE \`CustomAction\` SET \`Source\`='Registrar' WHERE \`Action\`='RestoreSettings'"
    # The old version is removed first, completely, so that it doesn't remove what the new one registers.
    echo "UPDATE \`InstallExecuteSequence\` SET \`Sequence\`=1501 WHERE \`Action\`='RemoveExistingProducts'"
    # A versioned file is only replaced by a newer version.
    for file in Module64.dll Module32.dll Kelvaroctl64.exe Kelvaroctl32.exe KelvaroRegister.exe; do
        echo "UPDATE \`File\` SET \`Version\`='$version.0', \`Language\`='1033' WHERE \`File\`='$file'"
        echo "DELETE FROM \`MsiFileHash\` WHERE \`File_\`='$file'"
    done
}

summary() { # summary PACKAGE_CODE
    time=$(date -u -d "@$SOURCE_DATE_EPOCH" '+%Y/%m/%d %H:%M:%S')
    printf 'PropertyId\tValue\r\ni2\tl255\r\n_SummaryInformation\tPropertyId\r\n'
    printf '1\t1252\r\n2\tInstallation Database\r\n3\tKelvaro %s\r\n4\tZandrel\r\n5\tInstaller\r\n' "$version"
    printf '6\tZandrel Key Storage Provider for Key Vault\r\n7\tx64;1033\r\n9\t{%s}\r\n' "$1"
    printf '12\t%s\r\n13\t%s\r\n14\t500\r\n15\t2\r\n18\tmsitools\r\n19\t2\r\n' "$time" "$time"
}

# The cabinet stores each file's time.
cp -R "$payload" "$work/payload"
payload=$work/payload
find "$payload" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +

setting_components 64 >"$work/settings64"
setting_components 32 >"$work/settings32"
doc_components >"$work/docs"
component_refs >"$work/components"

# Each line @part@ is replaced by the part of that name. wixl accepts no comments inside an element.
perl -0pe 's/<!--.*?-->//gs; s/^ *\@(\w+)\@$/`cat "$ENV{WORK}\/$1"`/gme' "$here/kelvaro.wxs" >"$work/kelvaro.wxs"
set -- -D Version="$version" -D ProductCode="$(guid "product/$version")" -D UpgradeCode="$(guid upgrade)"
for component in Module64 Module32 Kelvaroctl64 Kelvaroctl32 KelvaroRegister Policy PolicyText Prove Notices; do
    set -- "$@" -D "$component=$(guid "component/$component")"
done
(cd "$work" && wixl -a x64 "$@" -o kelvaro.msi kelvaro.wxs)

finishing_queries >"$work/queries"
while read -r query; do
    msibuild "$work/kelvaro.msi" -q "$query"
done <"$work/queries"
# The package code changes with the content and with nothing else.
content=$(cd "$payload" && find . -type f | sort | xargs sha1sum; cat "$work/queries" "$here/kelvaro.wxs")
summary "$(guid "package/$version/$SOURCE_DATE_EPOCH/$content")" >"$work/_SummaryInformation.idt"
msibuild "$work/kelvaro.msi" -i "$work/_SummaryInformation.idt"
mv "$work/kelvaro.msi" "$output"
