#!/usr/bin/env perl
use strict;
use warnings;

print "Hello, world!\n";
