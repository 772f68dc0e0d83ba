"""Módulo doc."""
import os  # stdlib
def greet(name='wörld'):
    msg = """Hi,
{}"""
    return msg.format(name) + "\"😀\""
'''trailing block'''
