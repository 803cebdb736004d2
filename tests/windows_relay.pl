#!/usr/bin/perl
# Forwards connections from one loopback port to another, for tests that name a port at which no simulator listens.
# Usage: windows_relay.pl FROM TO
use strict;
use warnings;
use Socket;

my ($from, $to) = @ARGV;
$SIG{CHLD} = 'IGNORE';
socket(my $listener, AF_INET, SOCK_STREAM, 0) or die "socket: $!";
setsockopt($listener, SOL_SOCKET, SO_REUSEADDR, 1);
bind($listener, sockaddr_in($from, INADDR_LOOPBACK)) or die "bind: $!";
listen($listener, 16) or die "listen: $!";
while (accept(my $client, $listener)) {
    next if fork;
    socket(my $server, AF_INET, SOCK_STREAM, 0) or exit 1;
    connect($server, sockaddr_in($to, INADDR_LOOPBACK)) or exit 1;
    # When either side ends, so does the other.
    while (1) {
        my $ready = '';
        vec($ready, fileno($_), 1) = 1 for $client, $server;
        select($ready, undef, undef, undef);
        for ([$client, $server], [$server, $client]) {
            next unless vec($ready, fileno($_->[0]), 1);
            exit 0 unless sysread($_->[0], my $bytes, 65536);
            syswrite($_->[1], $bytes);
        }
    }
}
