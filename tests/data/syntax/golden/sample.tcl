# greeting
proc greet {who} {
    set msg "Hello, $who\n"; # trailing
    puts $msg
}
greet world; puts 'raw'
puts "