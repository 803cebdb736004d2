#!/usr/bin/perl
# The table of docs/log.md has every text that the module logs as an error or a warning, with its level, and none that it doesn't.
# It may have texts of other levels, as long as the module logs them.
# Usage: tests/packaging/check-log-table.pl [--list]   --list prints the texts that the code has.
use strict;
use warnings;
use File::Basename;

my $top = dirname(__FILE__) . "/../..";

# Texts that reach a call of another level through a variable. Every other text in a variable counts as an error's or a warning's.
my %quiet = map { $_ => 1 } grep { length } split /\n/, <<'END';
KVCGetCerts rawURL nextlinkstr Found
KVCGetKeys rawURL nextlinkstr Found
AddKeyUsageProperty Failed to grab Semaphone - Result
DeleteKeyObject Failed to grab Semaphone - Result
DllMain DLL_PROCESS_ATTACH
DllMain DLL_PROCESS_DETACH
KVCDoKVRESTCall Keyname
KVCDoKVRESTCall actionverb
KVCGetKey KVCDoKVRESTCall SupressFailedReadError
KelvaroGetKeyProperty Failed to grab Semaphone - Result
KelvaroOpenProvider Reading Machine DPAPI Secret
KelvaroOpenProvider Reading User DPAPI Secret
KelvaroOpenProvider Saving Machine DPAPI Secret
KelvaroOpenProvider Saving User DPAPI Secret
KelvaroSetKeyProperty EvaluateCertsInStore Certificate Different
KelvaroSetKeyProperty EvaluateCertsInStore Certificate Different Sizes
KelvaroSetKeyProperty EvaluateCertsInStore Could not find KV Certificate
KelvaroSetKeyProperty Failed to grab Semaphone - Result
KelvaroSignHash Resize Hash
KelvaroSignHash Resized the Hash
KelvaroVerifySignature Resize Hash
KelvaroVerifySignature Resized the Hash
END

# Literals of a piece of code, neighbours joined as the compiler joins them.
my $literal = qr/TEXT\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+)\)/;
sub texts {
    my @found;
    while ($_[0] =~ /$literal/g) {
        push @found, join '', $1 =~ /"((?:[^"\\]|\\.)*)"/g;
    }
    return map { s/\s+$//r } grep { length } @found;
}

my %level_of;    # text => level, 0 when it is one of the two and the code doesn't say which in one place
my @travelling;
for my $file (glob "$top/{provider,keyvault,certsync,support}/*.{cpp,h}") {
    local $/;
    open my $in, '<', $file or die "$file: $!\n";
    my $code = <$in>;
    $code =~ s{//[^\n]*}{}g;
    my $balanced;
    $balanced = qr/(?:[^()"]|"(?:[^"\\]|\\.)*"|\((??{$balanced})\))*/;
    # The first argument of each log call; the literals left over are passed through variables.
    $code =~ s{\b(Log\w+|WaitAndRetry)\(($balanced)\)}{
        my ($call, $arguments) = ($1, $2);
        my ($message) = $arguments =~ /^((?:[^,()"]|"(?:[^"\\]|\\.)*"|\($balanced\))*)/;
        my $level = $call eq 'LogAscii' || $arguments =~ /LOG_ERROR_LEVEL\s*$/           ? 1
                  : $call eq 'WaitAndRetry' || $arguments =~ /LOG_WARNING_LEVEL\s*$/     ? 2
                  : $call eq 'LogData' || $arguments =~ /LOG_[A-Z]+_LEVEL\s*$/           ? 10 : 0;
        for my $text (texts($message)) {
            push @travelling, $text if !$level;
            $level_of{$text} = $level if $level && $level < 10 && (!$level_of{$text} || $level_of{$text} > $level);
        }
        '';
    }gse;
    push @travelling, grep { /^[A-Z]\w*[a-z]\w*(?: |::|$)/ && /^(?:Kelvaro|KeyVaultClient|KVC|Bld|Bytes|WStr|Get|Set|Add|Delete|Create)/ } texts($code);
}
my %travels = map { $_ => 1 } @travelling;
for (@travelling) {
    $level_of{$_} //= 0 unless $quiet{$_};
}
if (@ARGV && $ARGV[0] eq '--list') {
    print "$level_of{$_}\t$_\n" for sort keys %level_of;
    exit 0;
}

open my $in, '<', "$top/docs/log.md" or die "docs/log.md: $!\n";
my (%row, %detail, @wrong);
while (<$in>) {
    my ($texts, $level) = /^\| *(`[^|]*`) *\| *(\d+) *\|/ or next;
    for my $text ($texts =~ /`([^`]*)`/g) {
        push @wrong, "twice in docs/log.md: $text" if exists $row{$text} || exists $detail{$text};
        ($level <= 2 ? \%row : \%detail)->{$text} = $level;
    }
}
for (sort keys %level_of) {
    push @wrong, "not in docs/log.md: $_" if !exists $row{$_};
    push @wrong, "in docs/log.md with level $row{$_}, and logged with $level_of{$_}: $_"
        if exists $row{$_} && ($level_of{$_} ? $row{$_} != $level_of{$_} : $row{$_} !~ /^[12]$/);
}
for (sort keys %row) {
    push @wrong, "in docs/log.md and not in the code: $_" if !exists $level_of{$_};
}
for (sort keys %detail) {
    push @wrong, "in docs/log.md and not in the code: $_" if !$quiet{$_} || !$travels{$_};
}
print STDERR "$_\n" for @wrong;
printf "log table: %d texts\n", scalar keys %row unless @wrong;
exit(@wrong ? 1 : 0);
