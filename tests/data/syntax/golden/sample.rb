=begin notes
=end
def tidy(s)  # strip
  return s unless s =~ /\A\s+/
  %r{a/b}.match?(s) ? s.strip : "no \"x\""
end
rate = total / count / 2
puts <<EOS,<<TWO
one
EOS
two
TWO
