#!/usr/bin/perl
# serial_peer.pl FROM TO: what is plugged into a serial line of the emulated board, at the other ends
# of two pipes. A line "mode WORDS" from the board says how it behaves from then on:
#   loopback             every byte comes back
#   silent               nothing comes back
#   wrong-byte N         as loopback, but one bit of the N-th frame of ten bytes is wrong
#   nine-ten             for each frame nine bytes of it come back, and after a while ten more
#   camera CODE=HEX ...  a frame with the command CODE is answered with these bytes
use strict;
use warnings;
use IO::Handle;

my ($from, $to) = @ARGV;
open(my $in, '<:raw', $from) or die "$from: $!";
open(my $out, '>:raw', $to) or die "$to: $!";
$out->autoflush(1);
my ($mode, @words) = ('silent');
my ($buffer, $frames) = ('', 0);

sub answer {
    my ($frame) = @_;
    ++$frames;
    if ($mode eq 'loopback') {
        print $out $frame;
    } elsif ($mode eq 'wrong-byte') {
        substr($frame, 4, 1) ^= "\x01" if $frames == $words[0];
        print $out $frame;
    } elsif ($mode eq 'nine-ten') {
        print $out substr($frame, 0, 9);
        select(undef, undef, undef, 0.5);
        print $out $frame;
    } elsif ($mode eq 'camera') {
        my $code = sprintf('%02X', ord(substr($frame, 1, 1)));
        for (@words) {
            print $out pack('H*', $1) if /^$code=(.*)/;
        }
    }
}

while (sysread($in, $buffer, 4096, length $buffer)) {
    while (1) {
        if ($buffer =~ s/^mode ([^\r\n]*)\r?\n//) {
            ($mode, @words) = split ' ', $1;
            $frames = 0;
        } elsif ($buffer !~ /^m/ && length $buffer >= 10) {
            answer(substr($buffer, 0, 10, ''));
        } else {
            last;
        }
    }
}
