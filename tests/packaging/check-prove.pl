#!/usr/bin/perl
# Checks packaging/windows/prove.ps1 as far as possible without PowerShell: strings and brackets close, every variable and function is
# defined, the steps are numbered in order and depend on earlier ones, and the tool has the commands and options that they use.
# Usage: tests/packaging/check-prove.pl [FILE]
use strict;
use warnings;
use File::Basename;

my $top = dirname(__FILE__) . "/../..";
my $file = shift // "$top/packaging/windows/prove.ps1";
my @wrong;
sub slurp { local $/; open my $in, '<', $_[0] or die "$_[0]: $!\n"; <$in> }
local $_ = slurp($file);
sub wrong { push @wrong, "line " . (1 + (substr($_, 0, pos // 0) =~ tr/\n//)) . ": $_[0]" }

# $bare: the code with "" for each string, preceded by what the string expands. @texts: the strings without expansion.
my %closing = ('(' => ')', '{' => '}', '[' => ']');
my ($bare, @texts) = ('');
sub code;
sub expanding {    # an expandable string up to its end
    my ($end) = @_;
    until (/\G$end/gc) {
        if    (/\G(?:`.|"")/gcs)      { }
        elsif (/\G\$\(/gc)            { $bare .= ' ('; code(')') }
        elsif (/\G(\$\{?\w+\}?)/gc)   { $bare .= " $1 " }
        elsif (!/\G./gcs)             { wrong('an unterminated string'); last }
    }
    $bare .= ' "" ';
}
sub code {    # code up to the bracket that ends it, or to the end of the file
    my ($end) = @_;
    while ((pos() // 0) < length) {
        if    (/\G(?:<#.*?#>|#[^\n]*)/gcs)     { }
        elsif (/\G\@'\n.*?\n'\@/gcs)           { $bare .= '""' }
        elsif (/\G\@"\n/gc)                    { expanding(qr/\n"\@/) }
        elsif (/\G'((?:[^'\n]|'')*)'/gc)       { $bare .= '""'; push @texts, $1 }
        elsif (/\G"/gc)                        { expanding(qr/"(?!")/) }
        elsif (/\G`./gcs)                      { }
        elsif (/\G([({[])/gc)                  { $bare .= $1; code($closing{$1}) }
        elsif (/\G([)}\]])/gc) {
            $bare .= $1;
            wrong("'$1' where " . ($end ? "'$end'" : 'nothing') . ' is open') unless $end && $1 eq $end;
            return;
        }
        elsif (/\G([^'])/gcs)                  { $bare .= $1 }
        else                                   { wrong('an unterminated string'); return }
    }
    wrong("no '$end' at the end of the file") if $end;
}
pos() = 0;
code('');

# Variables are assigned before an equals sign, by foreach, or as parameters.
my %assigned = map { lc, 1 } qw(_ null true false env script lastexitcode);
$assigned{lc $1} = 1 while $bare =~ /\$(\w+)\s*(?:\+?=(?!=))/g;
$assigned{lc $1} = 1 while $bare =~ /foreach\s*\(\s*\$(\w+)\s+in\b/g;
while ($bare =~ /(?:param|function\s+\w+)\s*(\((?:[^()]|\((?:[^()]|\([^()]*\))*\))*\))/g) {
    my $list = $1;
    $assigned{lc $1} = 1 while $list =~ /\]\s*\$(\w+)/g;
}
my %missing;
while ($bare =~ /\$\{?(\w+)/g) { $missing{$1} = 1 unless $assigned{lc $1} }
push @wrong, map { "\$$_ is never set" } sort keys %missing;

# A function is called at the start of a statement or bracket, or after a pipe.
my %function = map { $_ => 0 } $bare =~ /\bfunction\s+(\w+)/g;
my %word = map { $_ => 1 } qw(function param if else elseif foreach try catch finally throw exit until while do switch);
(my $statements = $bare) =~ s/\breturn\b/;/g;
while ($statements =~ /(?:^|[{(;|=&])[ \t]*(\w[\w-]*)(?=[\s)}]|$)(?!\s*=)/gm) {
    my $name = $1;
    next if $name =~ /^\d/ || $word{lc $name} || $name =~ /^(?:Add|Get|Set|New|Remove|Write|Read|Join|Test|Out|Start|Split|Format|Sort|Select|ForEach|Where|ConvertFrom|Resolve)-\w+$/;
    exists $function{$name} ? $function{$name}++ : push @wrong, "$name is neither a function of the script nor a cmdlet";
}
push @wrong, map { "$_ is never called" } grep { !$function{$_} } sort keys %function;

# Steps: the number, and the earlier steps that it needs.
my $count = 0;
my $source = slurp($file);
while ($source =~ /^    \@\((\d+), .*, \@\(([\d, ]*)\), \{$/gm) {
    my ($number, @needed) = ($1, split /, */, $2);
    push @wrong, "step $number is number " . ($count + 1) if $number != ++$count;
    push @wrong, map { "step $number needs step $_" } grep { $_ >= $number } @needed;
}
push @wrong, "$count steps" if $count != 19;

# The tool's options and commands, in its sources.
my $tool = join '', map { slurp($_) } glob "$top/kelvaroctl/*.cpp";
for my $option (grep { /^--[a-z]/ } @texts) {
    push @wrong, "kelvaroctl has no $option" if index($tool, "\"$option\"") < 0;
}
while ($source =~ /\@\((?:'--via', 'ncrypt', |'--json', )?'(keys|certs|config|provider)', '(\w+)'/g) {
    push @wrong, "kelvaroctl has no $1 $2" if $tool !~ /[{(]\s*"$2",\s*"/;
}
print STDERR "prove.ps1: $_\n" for @wrong;
print "prove.ps1: $count steps\n" unless @wrong;
exit(@wrong ? 1 : 0);
