use strict;  # pragma
my %seen = (k => q{v w});
$seen{$1}++ if $_ =~ /(\w+)\s/;
m/x/ and print <<EOF;
Total: "$.\n"
EOF
=pod
Docs here.
=cut
__END__
my "data"
