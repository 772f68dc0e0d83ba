"""Module doc."""
import os  # stdlib
def greet(name='world'):
    msg = """Hi,
{}"""
    return msg.format(name) + "\"!\""
'''trailing block'''
