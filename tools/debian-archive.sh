# A private apt that leaves the machine's configuration alone. Sourced by scripts.
# debian_archive FOLDER TYPE [SUITES]   prepares FOLDER and sets `apt` to the command. TYPE: deb or deb-src. The sources are
# the machine's own for Debian: all of the release's suites, or with SUITES=release only the release, without updates.
debian_archive() {
    archive=$1
    type=$2
    suites=${3:-all}
    rm -rf "$archive"
    mkdir -p "$archive/lists/partial" "$archive/cache/archives/partial" "$archive/parts" "$archive/state"
    : >"$archive/state/status"
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    any='[^ ]*'
    [ "$suites" = all ] || any=
    sed -n "s/^deb \\(\\[[^]]*\\] \\)\\{0,1\\}\\([^ ]*\\) \\($codename$any\\) \\(.*\\)\$/$type \\1\\2 \\3 \\4/p" \
        /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null >"$archive/sources.list" || true
    for list in /etc/apt/sources.list.d/*.sources; do
        [ -f "$list" ] || continue
        if [ "$suites" = all ]; then
            awk -v RS= -v ORS='\n\n' -v wanted="Suites: $codename" 'index($0, wanted)' "$list"
        else
            awk -v RS= -v ORS='\n\n' -v wanted="Suites: $codename( |\n|\$)" '$0 ~ wanted' "$list" |
                sed "s/^Suites:.*/Suites: $codename/; /^Architectures:/d"
        fi
    done | sed "s/^Types:.*/Types: $type/" >"$archive/parts/debian.sources"
    [ -s "$archive/parts/debian.sources" ] || rm "$archive/parts/debian.sources"
    apt="apt-get -qq -o Dir::Etc::sourcelist=$archive/sources.list -o Dir::Etc::sourceparts=$archive/parts
         -o Dir::State=$archive/state -o Dir::State::status=$archive/state/status -o Dir::State::lists=$archive/lists
         -o Dir::Cache=$archive/cache -o APT::Sandbox::User=root"
}
