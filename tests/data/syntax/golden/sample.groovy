// build script
def name = "Ada"
println "Hi ${name}\n"
def doc = """one
two"""
/* end */ task hello
