#!/bin/sh
# Installs, upgrades, repairs and removes the Windows package on the Windows runtime, next to a simulated vault. Started by
# check-packages.sh in private namespaces.
# Usage: installer_run.sh PREFIX PAYLOAD VAULTSIM ROUTER.dll HOSTILE.dll OLD.msi OLD_VERSION NEW.msi NEW_VERSION
# The runtime can't register key storage providers: the registration is left out where an installation must succeed, and its removal
# fails, which must not keep the product installed.
set -eu
prefix=$1
payload=$2
vaultsim=$3
router=$4
hostile=$5
old=$6
old_version=$7
new=$8
new_version=$9
here=$(cd "$(dirname "$0")" && pwd)
drive=$work/tmp/prefix/drive_c
program_folder='C:\Program Files\Zandrel\Kelvaro'
log_folder='C:\ProgramData\Zandrel\Kelvaro\Logs'
secret=s3cret.of-the-installer
failed=0

wrong() {
    echo "installer on Windows: $*" >&2
    failed=1
}
wine() { timeout --kill-after=10 300 chroot "$runtime_root" "$WINE64" "$@" </dev/null 2>>"$work/wine.log"; }
# The output of the programs that the installer starts goes to the log.
msi() { wine msiexec "$@" /qn >>"$work/wine.log"; }
# Success is judged by the output: the pipe hides the exit code.
ctl() { # ctl FOLDER ARGUMENT...: the installed tool, '' or '\x86'
    folder=$1
    shift
    wine "$program_folder$folder\\kelvaroctl.exe" "$@" | tr -d '\r'
}
setting() { # setting 64|32 NAME
    wine reg query 'HKLM\Software\Zandrel\Kelvaro' /v "$2" "/reg:$1" | tr -d '\r' | sed -n "s/^  *$2  *REG_[A-Z]*  *//p"
}
settings() { # settings: everything below the product's key, in both views
    for bits in 64 32; do
        wine reg query 'HKLM\Software\Zandrel' /s "/reg:$bits" | tr -d '\r' | sed '/^$/d; /^reg: /d'
    done
}
expect_settings() { # expect_settings FILE WHEN: they equal the file
    settings >"$work/found"
    diff "$1" "$work/found" >"$work/difference" && return
    wrong "other settings $2:"
    cut -c 1-100 "$work/difference" | head -n 12 >&2
}
registrar() { wine "$program_folder\\kelvaro-register.exe" "$@" | tr -d '\r'; }
expect_unharmed() { # expect_unharmed WHEN: the hostile DLL was not loaded
    [ ! -e "$drive/hostile.txt" ] || wrong "a foreign DLL was loaded $1"
    rm -f "$drive/hostile.txt"
}
expect() { # expect WHAT WANTED FOUND
    [ "$2" = "$3" ] || wrong "$1 is '$3', not '$2'"
}
expect_files() { # expect_files yes|no WHEN
    while read -r built installed; do
        if [ "$1" = no ]; then
            [ ! -e "$drive/$installed" ] || wrong "$installed is there $2"
        else
            cmp -s "$payload/$built" "$drive/$installed" || wrong "$installed is not the built $built $2"
        fi
    done <<END
x64/kelvaro.dll windows/system32/kelvaro.dll
x86/kelvaro.dll windows/syswow64/kelvaro.dll
x64/kelvaroctl.exe Program Files/Zandrel/Kelvaro/kelvaroctl.exe
x86/kelvaroctl.exe Program Files/Zandrel/Kelvaro/x86/kelvaroctl.exe
x64/kelvaro-register.exe Program Files/Zandrel/Kelvaro/kelvaro-register.exe
prove.ps1 Program Files/Zandrel/Kelvaro/prove.ps1
NOTICES.txt Program Files/Zandrel/Kelvaro/NOTICES.txt
docs/installing.md Program Files/Zandrel/Kelvaro/docs/installing.md
policy/Kelvaro.admx windows/PolicyDefinitions/Kelvaro.admx
policy/en-US/Kelvaro.adml windows/PolicyDefinitions/en-US/Kelvaro.adml
END
}
expect_product() { # expect_product VERSION...: what Windows lists as installed
    found=$(wine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall' /s /reg:64 | tr -d '\r' |
        awk '/^HKEY/ {version = ""} $1 == "DisplayVersion" {version = $3} $1 == "DisplayName" && $3 == "Kelvaro" {mine = 1}
             /^$/ {if (mine) print version; mine = 0} END {if (mine) print version}' | tr '\n' ' ')
    expect "the installed version" "$*" "${found% }"
}

cp -a "$prefix" "$work/tmp/prefix"
cp "$old" "$work/tmp/old.msi"
cp "$new" "$work/tmp/new.msi"
"$here/../windows_names.pl" &
mkdir "$work/tmp/sim"
: >"$work/ready"
"$vaultsim" --dir "$work/tmp/sim" --control-port 8000 --listen-tls 443 --http-port 80 --vault contoso-keys \
    --client-secret "$secret" --quiet >"$work/ready" &
until grep -q '^ready' "$work/ready"; do
    kill -0 $! || exit 1
    sleep 0.1
done
. "$work/tmp/sim/env"
cp "$work/tmp/sim/ca.pem" "$work/certs/ca-certificates.crt"
curl -sS --fail --noproxy '*' -X POST http://127.0.0.1:8000/vaults/contoso-keys/keys -d '{"name":"signer","kty":"RSA","size":2048}' >/dev/null
mkdir "$work/tmp/hostile"
cp "$hostile" "$work/tmp/hostile/kelvaro.dll"

settings >"$work/none"
printf 'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"KeyVault"="from-a-file"\n' \
    >"$work/tmp/good.reg"
# Refused without traces: another processor, a log folder planted by somebody else, and a secret that stays in clear text because it
# is too long to be protected.
architecture() { wine reg add "HKLM\\System\\CurrentControlSet\\Control\\Session Manager\\Environment" /v PROCESSOR_ARCHITECTURE /d "$1" /f >/dev/null; }
architecture ARM64
! msi /i 'Z:\tmp\old.msi' NOREGISTER=1 || wrong "it installs on ARM64"
architecture AMD64
echo planted >"$drive/ProgramData/Zandrel"
! msi /i 'Z:\tmp\old.msi' NOREGISTER=1 KEYVAULT=contoso-keys || wrong "a planted log folder was accepted"
rm "$drive/ProgramData/Zandrel"
! msi /i 'Z:\tmp\old.msi' NOREGISTER=1 "CLIENTSECRET=$(printf '%0600d' 0 | tr 0 x)" 'SETTINGSFILE=Z:\tmp\good.reg' ||
    wrong "a secret was left in clear text"
[ ! -e "$drive/ProgramData/Zandrel" ] || wrong "a failed installation left its log folder"
expect_files no "after a refusal"
expect_settings "$work/none" "after a refusal"

# An installation with settings works for programs of both kinds, and keeps no secret in clear text.
msi /i 'Z:\tmp\old.msi' NOREGISTER=1 KEYVAULT=contoso-keys AUTHENTICATIONTYPE=2 "TENANTID=$VAULTSIM_TENANT" \
    "CLIENTID=$VAULTSIM_CLIENT_ID" "CLIENTSECRET=$secret" CERTIFICATESORKEYS=1 LOGGINGLEVEL=4 ||
    wrong "the installation failed"
expect_files yes "after the installation"
expect_product "$old_version"
echo "what is signed" >"$work/tmp/file"
for view in '64 ' '32 \x86'; do
    bits=${view%% *}
    folder=${view#* }
    expect "KeyVault, $bits bits" contoso-keys "$(setting "$bits" KeyVault)"
    expect "LoggingLevel, $bits bits" 0x4 "$(setting "$bits" LoggingLevel)"
    expect "LogfilePath, $bits bits" "$log_folder" "$(setting "$bits" LogfilePath)"
    expect "EventLog, $bits bits" Kelvaro "$(setting "$bits" EventLog)"
    expect "the clear secret, $bits bits" '' "$(setting "$bits" ClientSecret)"
    [ -n "$(setting "$bits" ClientDPAPISecret)" ] || wrong "the secret is not protected, $bits bits"
    ctl "$folder" sign --key signer --alg RS256 --in 'Z:\tmp\file' --out "Z:\\tmp\\file$bits.sig" >/dev/null
    ctl "$folder" keys export signer --format pem --out "Z:\\tmp\\signer$bits.pem" >/dev/null
    openssl dgst -sha256 -verify "$work/tmp/signer$bits.pem" -signature "$work/tmp/file$bits.sig" "$work/tmp/file" >/dev/null ||
        wrong "a bad signature, $bits bits"
done
ls "$drive"/ProgramData/Zandrel/Kelvaro/Logs/*_Kelvaro.log >/dev/null || wrong "nothing was logged"
status=$(registrar status)
expect "what is closed to ordinary users" 3 "$(echo "$status" | grep -c 'closed to ordinary users')"
! settings | grep -q saved || wrong "a copy of the settings was left"
wine reg query 'HKLM\System\CurrentControlSet\Services\EventLog\Application\Kelvaro' /v EventMessageFile | grep -qi 'system32.kelvaro\.dll' ||
    wrong "the events have no source"
protected=$(setting 64 ClientDPAPISecret)

# Through a router, as other programs reach the provider. This one is in the folder of a copy of the tool.
mkdir "$work/tmp/router"
cp "$payload/x64/kelvaroctl.exe" "$work/tmp/router"
cp "$router" "$work/tmp/router/ncrypt.dll"
routed() { WINEDLLOVERRIDES="$WINEDLLOVERRIDES;ncrypt=n" wine 'Z:\tmp\router\kelvaroctl.exe' --via ncrypt "$@" | tr -d '\r'; }
expect "the provider through the router" 'Zandrel Key Storage Provider for Key Vault' \
    "$(routed provider show | sed -n 's/^name  *//p')"
expect "the keys through the router" "$(ctl '' keys list --details)" "$(routed keys list --details)"
expect "the algorithms through the router" "$(ctl '' algorithms)" "$(routed algorithms)"
routed sign --key signer --alg PS256 --in 'Z:\tmp\file' --out 'Z:\tmp\routed.sig' >/dev/null
expect "the verdict through the router" 'good signature' \
    "$(routed verify --key signer --alg PS256 --in 'Z:\tmp\file' --signature 'Z:\tmp\routed.sig')"
routed encrypt --key signer --padding oaep --in 'Z:\tmp\file' --out 'Z:\tmp\routed.enc' >/dev/null
routed decrypt --key signer --padding oaep --in 'Z:\tmp\routed.enc' --out 'Z:\tmp\routed.dec' >/dev/null
cmp -s "$work/tmp/file" "$work/tmp/routed.dec" || wrong "encryption and decryption through the router"
routed keys create routed --alg RSA --length 3072 >/dev/null
expect "the new key" 'RSA 3072' "$(ctl '' keys show routed | sed -n 's/^key  *//p')"
routed keys delete routed --yes >/dev/null
expect "the deleted key" '' "$(ctl '' keys show routed)"

ctl '' config set LoggingLevel 8 >/dev/null
ctl '' config set EventLog Application >/dev/null

# An upgrade and a repair keep the settings; an older version is refused.
msi /i 'Z:\tmp\new.msi' NOREGISTER=1 EVLOGGINGLEVEL=2 || wrong "the upgrade failed"
expect_files yes "after the upgrade"
expect_product "$new_version"
msi /i 'Z:\tmp\new.msi' REINSTALL=ALL REINSTALLMODE=amus NOREGISTER=1 || wrong "the repair failed"
for bits in 64 32; do
    expect "KeyVault after the upgrade, $bits bits" contoso-keys "$(setting $bits KeyVault)"
    expect "EVLoggingLevel of the upgrade, $bits bits" 0x2 "$(setting $bits EVLoggingLevel)"
done
expect "the changed level" 0x8 "$(setting 64 LoggingLevel)"
expect "the changed source" Application "$(setting 64 EventLog)"
expect "the protected secret" "$protected" "$(setting 64 ClientDPAPISecret)"
! msi /i 'Z:\tmp\old.msi' NOREGISTER=1 || wrong "an older version was installed over a newer one"
expect_product "$new_version"

# Anybody can start a repair: it accepts no setting, file or DLL from whoever starts it.
{ cat "$work/tmp/good.reg" && echo '"ClientSecret"="another"'; } >"$work/tmp/secret.reg"
settings >"$work/before"
msi /i 'Z:\tmp\new.msi' REINSTALL=ALL REINSTALLMODE=amus NOREGISTER=1 KEYVAULT=hostile CLIENTSECRET=hostile \
    'SETTINGSFILE=Z:\tmp\secret.reg' || wrong "a repair with properties failed"
expect_settings "$work/before" "after a repair with properties"
# The runtime's msiexec drops quotation marks, so the command line that Windows would build is run here.
file='Z:\tmp\secret.reg" --module "Z:\tmp\hostile\kelvaro.dll'
import=$(msiinfo export "$new" CustomAction | tr -d '\r' | awk -F '\t' '$1 == "ImportSettings64" {print $4}')
printf '@"%s\\kelvaroctl.exe" %s\r\n' "$program_folder" "${import%%\[*}$file\"" >"$work/tmp/import.bat"
wine cmd /c 'Z:\tmp\import.bat' >/dev/null && wrong "a settings file with quotation marks in its name was accepted"
expect_unharmed "by the name of a settings file"
expect_settings "$work/before" "after an import with quotation marks"

# Removal deletes the files and keeps the settings.
msi /x 'Z:\tmp\new.msi' || wrong "the removal failed"
expect_files no "after the removal"
expect_product
expect "KeyVault after the removal" contoso-keys "$(setting 64 KeyVault)"

# What cannot be finished is undone, with the rights to the settings: a settings file with a wrong line, and a registration that
# Windows refuses.
mkdir "$work/tmp/tool"
cp "$payload/x64/kelvaroctl.exe" "$work/tmp/tool"
tool() { wine 'Z:\tmp\tool\kelvaroctl.exe' "$@" | tr -d '\r'; }
readers() { tool config show | grep '^read by '; }
refused() { # refused WHAT ARGUMENT...
    what=$1
    shift
    settings >"$work/before"
    before=$(readers)
    ! msi /i 'Z:\tmp\new.msi' "$@" || wrong "accepted: $what"
    expect_files no "after $what"
    expect_settings "$work/before" "after $what"
    expect "who can read the settings after $what" "$before" "$(readers)"
}
{ cat "$work/tmp/good.reg" && echo '"NoSuchSetting"="1"'; } >"$work/tmp/bad.reg"
refused "a wrong line" NOREGISTER=1 'SETTINGSFILE=Z:\tmp\bad.reg'
# Settings that no installer has closed.
wine reg delete 'HKLM\Software\Zandrel\Kelvaro' /f /reg:64 >/dev/null
wine reg add 'HKLM\Software\Zandrel\Kelvaro' /v KeyVault /d by-hand /reg:64 >/dev/null
refused "a refused registration" KEYVAULT=other 'SETTINGSFILE=Z:\tmp\good.reg'
# No secret is written where an administrator lets ordinary users read it.
tool config protect --allow Users >/dev/null
refused "a secret for open settings" NOREGISTER=1 KEYVAULT=other "CLIENTSECRET=$secret"
refused "a file with a secret for open settings" NOREGISTER=1 'SETTINGSFILE=Z:\tmp\secret.reg'
wine cmd /c 'cd /d Z:\tmp\hostile && Z:\tmp\tool\kelvaroctl.exe provider show' >/dev/null && wrong "a module was found where none is installed"
expect_unharmed "from the working directory"
msi /i 'Z:\tmp\new.msi' NOREGISTER=1 'SETTINGSFILE=Z:\tmp\good.reg' || wrong "the installation with a settings file failed"
for bits in 64 32; do
    expect "KeyVault of the file, $bits bits" from-a-file "$(setting $bits KeyVault)"
done

# The registration program checks the modules before it asks Windows for anything.
cp "$drive/windows/syswow64/kelvaro.dll" "$drive/windows/system32/kelvaro.dll"
said=$(wine "$program_folder\\kelvaro-register.exe" install) && wrong "a module for 32 bits was registered for 64"
case $said in
*'system32\kelvaro.dll is for x86 and must be for x64'*) ;;
*) wrong "kelvaro-register says: $said" ;;
esac

[ "$failed" = 0 ] && echo "installer on Windows: installs, upgrades, repairs, removes, and undoes what fails"
exit "$failed"
