#!/usr/bin/perl
# The name server of a test run on Windows' runtime: every vault, the sign-in endpoint and the tests' identity service are on
# loopback, nothing else is known. So it is the simulator that refuses a vault it doesn't have, as on Linux.
use strict;
use warnings;
use Socket;

socket(my $socket, AF_INET, SOCK_DGRAM, 0) or die "socket: $!";
bind($socket, sockaddr_in(53, INADDR_LOOPBACK)) or die "bind: $!";
while (defined(my $client = recv($socket, my $query, 512, 0))) {
    next if length($query) < 17;
    my ($name, $at) = ('', 12);
    while ((my $size = ord(substr($query, $at, 1))) != 0) {
        $name .= lc(substr($query, $at + 1, $size)) . '.';
        $at += $size + 1;
    }
    my $question = substr($query, 12, $at + 5 - 12);
    my $known = $name =~ /\.vault\.azure\.net\.$|^login\.microsoftonline\.com\.$|^identity\.example\.$/;
    # The one answer that there is: an A record that points back to the question's name.
    my $answer = $known && unpack('n', substr($question, -4)) == 1;
    my $reply = substr($query, 0, 2) . pack('n5', $known ? 0x8180 : 0x8183, 1, $answer ? 1 : 0, 0, 0) . $question;
    $reply .= pack('n3Nn', 0xC00C, 1, 1, 60, 4) . INADDR_LOOPBACK if $answer;
    send($socket, $reply, 0, $client);
}
